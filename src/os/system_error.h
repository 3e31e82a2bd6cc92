#ifndef KW_OS_SYSTEM_ERROR_H_
#define KW_OS_SYSTEM_ERROR_H_

#include <string>

namespace kw {

/// The operating system's own text for an error code: strerror's for an errno on POSIX,
/// FormatMessage's for a GetLastError or Winsock code on Windows, without a trailing line end.
std::wstring SystemErrorText(int code);

}  // namespace kw

#endif  // KW_OS_SYSTEM_ERROR_H_
