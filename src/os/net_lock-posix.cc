#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/text.h"
#include "os/net_lock.h"
#include "os/port_lock-posix.h"

namespace kw {
namespace {

/// A lock file in the folder of the serial ports' locks, held as theirs are (our process id in
/// it, flock on it); where that folder can't be written, an flock on a file in /tmp.
class PosixAddressLock final : public AddressLock {
 public:
  explicit PosixAddressLock(PortLock lock) : lock_(std::move(lock)) {}
  explicit PosixAddressLock(int fallback) : lock_(std::string()), fallback_(fallback) {}
  ~PosixAddressLock() override {
    if (fallback_ >= 0) ::close(fallback_);
  }

 private:
  PortLock lock_;
  int fallback_ = -1;
};

}  // namespace

std::unique_ptr<AddressLock> LockAddress(const std::wstring& address, std::wstring* notice) {
  // Named like a device's lock, below a folder that no system has, so that no path is resolved:
  // "LCK..net:HOST:PORT".
  const std::string name = "/net:" + ToLocale(address);
  PortLock lock(SystemPortLockFolder());
  switch (lock.Take(name)) {
    case PortLock::Result::kTaken:
      return std::make_unique<PosixAddressLock>(std::move(lock));
    case PortLock::Result::kHeld:
      return nullptr;
    case PortLock::Result::kStale:  // an address has no device whose flock would keep it
    case PortLock::Result::kUnavailable:
      break;
  }
  const std::string path = "/tmp/kestrawind-" + PortLockName(name);
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666);
  if (fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0) {
    ::fchmod(fd, 0666);  // every user's runs take turns on it, whatever the umask
    *notice = L"No lock file: " + FromLocale(lock.folder()) + L" can't be written; " + address +
              L" is kept by flock on " + FromLocale(path) + L".";
    return std::make_unique<PosixAddressLock>(fd);
  }
  const bool held = fd >= 0 && errno == EWOULDBLOCK;
  if (fd >= 0) ::close(fd);
  if (held) return nullptr;
  *notice = L"No lock file: neither " + FromLocale(lock.folder()) + L" nor " + FromLocale(path) +
            L" can be written; " + address + L" is not kept from other runs.";
  return std::make_unique<PosixAddressLock>(-1);
}

}  // namespace kw
