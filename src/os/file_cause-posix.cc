#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/text.h"
#include "os/file_cause.h"
#include "os/system_error.h"

namespace kw {
namespace {

/// The cause that an errno of stat(2) or open(2) stands for.
Cause CauseOf(int error) {
  if (error == ENOENT || error == ENOTDIR) return Cause::kMissing;
  if (error == EACCES || error == EPERM) return Cause::kNoPermission;
  return Cause::kOther;
}

}  // namespace

Cause FileReadCause(const std::wstring& path, std::wstring* reason) {
  const std::string name = ToLocale(path);
  struct stat info {};
  int error = 0;
  if (::stat(name.c_str(), &info) != 0) {
    error = errno;
  } else if (S_ISDIR(info.st_mode)) {
    error = EISDIR;
  } else if (!S_ISREG(info.st_mode)) {
    *reason = L"not a plain file";
    return Cause::kNotAPort;
  } else {
    const int fd = ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0) {
      ::close(fd);
      return Cause::kNone;
    }
    error = errno;
  }
  *reason = SystemErrorText(error);
  return error == EISDIR ? Cause::kNotAPort : CauseOf(error);
}

}  // namespace kw
