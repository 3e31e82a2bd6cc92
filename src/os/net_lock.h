#ifndef KW_OS_NET_LOCK_H_
#define KW_OS_NET_LOCK_H_

#include <memory>
#include <string>

namespace kw {

/// A run's hold on a network address, as a lock file or mutex holds a serial device; let go when
/// it goes.
class AddressLock {
 public:
  virtual ~AddressLock() = default;
};

/// Takes the lock of an address ("HOST:PORT") among the runs on this machine, before anything
/// connects: the hold, or null while another run holds it. When the lock can't keep out every
/// other run, *notice gets a remark for the debug log.
std::unique_ptr<AddressLock> LockAddress(const std::wstring& address, std::wstring* notice);

}  // namespace kw

#endif  // KW_OS_NET_LOCK_H_
