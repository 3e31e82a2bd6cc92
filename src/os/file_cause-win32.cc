#include <windows.h>

#include "os/file_cause.h"
#include "os/system_error.h"

namespace kw {
namespace {

/// The cause that a GetLastError code of a file lookup or opening stands for.
Cause CauseOf(DWORD error) {
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return Cause::kMissing;
  if (error == ERROR_ACCESS_DENIED) return Cause::kNoPermission;
  return Cause::kOther;
}

}  // namespace

Cause FileReadCause(const std::wstring& path, std::wstring* reason) {
  DWORD error = ERROR_SUCCESS;
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    error = ::GetLastError();
  } else if ((attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE)) != 0) {
    *reason = L"not a plain file";
    return Cause::kNotAPort;
  } else {
    const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
      ::CloseHandle(file);
      return Cause::kNone;
    }
    error = ::GetLastError();
  }
  *reason = SystemErrorText(static_cast<int>(error));
  return CauseOf(error);
}

}  // namespace kw
