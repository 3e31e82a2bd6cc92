#include <windows.h>

#include <cwctype>

#include "os/net_lock.h"

namespace kw {
namespace {

/// A named mutex per address, as for a COM port.
class Win32AddressLock final : public AddressLock {
 public:
  explicit Win32AddressLock(HANDLE mutex) : mutex_(mutex) {}
  ~Win32AddressLock() override {
    if (mutex_ == nullptr) return;
    ::ReleaseMutex(mutex_);
    ::CloseHandle(mutex_);
  }

 private:
  HANDLE mutex_;
};

}  // namespace

std::unique_ptr<AddressLock> LockAddress(const std::wstring& address, std::wstring* notice) {
  std::wstring name = L"Global\\Kestrawind.Net.";
  for (wchar_t c : address) name += static_cast<wchar_t>(std::towupper(c));
  const HANDLE mutex = ::CreateMutexW(nullptr, TRUE, name.c_str());
  if (mutex == nullptr) {
    if (::GetLastError() == ERROR_ACCESS_DENIED) return nullptr;  // held by another user
    *notice = L"No mutex for " + address + L": it is not kept from other runs.";
    return std::make_unique<Win32AddressLock>(nullptr);
  }
  if (::GetLastError() == ERROR_ALREADY_EXISTS) {
    ::CloseHandle(mutex);
    return nullptr;
  }
  return std::make_unique<Win32AddressLock>(mutex);
}

}  // namespace kw
