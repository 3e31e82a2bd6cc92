#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "os/standard_streams.h"

namespace kw {

bool StandardInputIsTerminal() { return ::isatty(STDIN_FILENO) == 1; }

bool ReadStandardInput(size_t limit, std::string* bytes) {
  char buffer[4096];
  while (bytes->size() <= limit) {
    const size_t want = std::min(sizeof buffer, limit + 1 - bytes->size());
    const ssize_t n = ::read(STDIN_FILENO, buffer, want);
    if (n == 0) return true;
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    bytes->append(buffer, static_cast<size_t>(n));
  }
  return true;
}

bool WriteStandardErrorLine(const std::string& bytes) {
  const std::string line = bytes + "\n";
  size_t done = 0;
  while (done < line.size()) {
    const ssize_t n = ::write(STDERR_FILENO, line.data() + done, line.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace kw
