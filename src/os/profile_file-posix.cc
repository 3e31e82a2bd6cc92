#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/text.h"
#include "os/profile_file.h"

namespace kw {
namespace {

/// Closes a descriptor when it goes.
class FdCloser {
 public:
  explicit FdCloser(int fd) : fd_(fd) {}
  ~FdCloser() { close(fd_); }
  FdCloser(const FdCloser&) = delete;
  FdCloser& operator=(const FdCloser&) = delete;

 private:
  int fd_;
};

}  // namespace

bool ReadWholeFile(const std::wstring& path, std::string& bytes, FileProblem& problem) {
  bytes.clear();
  const int fd = open(ToLocale(path).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    problem = FileProblemOf(errno);
    return false;
  }
  const FdCloser closer(fd);
  // A plain file is read in one go: a read that gives less than was asked for has met its end.
  struct stat info;
  const bool plain = fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
  size_t chunk = plain ? static_cast<size_t>(info.st_size) + 1 : 4096;
  for (;;) {
    const size_t have = bytes.size();
    bytes.resize(have + chunk);
    const ssize_t got = read(fd, &bytes[have], chunk);
    bytes.resize(have + (got > 0 ? static_cast<size_t>(got) : 0));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      problem = FileProblemOf(errno);  // a folder: "Is a directory"
      bytes.clear();
      return false;
    }
    if (got == 0 || (plain && static_cast<size_t>(got) < chunk)) return true;
    chunk = bytes.size();  // grows with what came, so that a big file takes few reads
  }
}

bool WriteWholeFile(const std::wstring& path, const std::string& bytes) {
  const int fd = open(ToLocale(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  const FdCloser closer(fd);
  for (size_t done = 0; done < bytes.size();) {
    const ssize_t written = write(fd, bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    done += static_cast<size_t>(written);
  }
  return true;
}

bool ReadsAsUtf8(const std::string&, size_t) { return false; }

std::wstring DecodeProfileText(const std::string& bytes, bool) { return FromLocale(bytes); }

std::string EncodeProfileText(const std::wstring& text, bool) { return ToLocale(text); }

}  // namespace kw
