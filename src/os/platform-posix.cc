#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "base/text.h"
#include "os/platform.h"
#include "os/raw_command_line.h"

namespace kw {
namespace {

/// The name that our event-log records carry.
constexpr char kEventSource[] = "Kestrawind";

/// The target of a symbolic link, or empty when it can't be read.
std::string ReadLink(const char* path) {
  std::vector<char> buffer(256);
  for (;;) {
    const ssize_t length = readlink(path, buffer.data(), buffer.size());
    if (length < 0) return std::string();
    // readlink truncates silently: a full buffer may be a cut name, so try a bigger one.
    if (static_cast<size_t>(length) < buffer.size()) return std::string(buffer.data(), length);
    buffer.resize(buffer.size() * 2);
  }
}

}  // namespace

const wchar_t kPathSeparator[] = L"/";

std::wstring RawCommandLine() {
  // The kernel keeps argv as it came in, each argument ended by a NUL; the shell has done the
  // splitting and the quoting is gone, so the line is rebuilt for SplitCommandLine.
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::vector<std::wstring> args;
  size_t start = 0;
  while (start < bytes.size()) {
    size_t end = bytes.find('\0', start);
    if (end == std::string::npos) end = bytes.size();  // a process may overwrite its last NUL
    args.push_back(FromLocale(bytes.substr(start, end - start)));
    start = end + 1;
  }
  if (!args.empty()) args.erase(args.begin());  // the program's own name
  return BuildRawCommandLine(args);
}

std::wstring ExecutableFolder() {
  // The kernel's link names the binary itself, whatever symlink or working folder started it.
  const std::string path = ReadLink("/proc/self/exe");
  const size_t slash = path.rfind('/');
  // Without /proc the working folder is the best guess left.
  if (slash == std::string::npos) return L".";
  // A binary in "/" gives the empty folder, so folder + separator + name is still "/name".
  return FromLocale(path.substr(0, slash));
}

bool PlainFileExists(const std::wstring& path) {
  struct stat info;
  if (stat(ToLocale(path).c_str(), &info) != 0) return false;
  return S_ISREG(info.st_mode);
}

void GuardStandardStreams() {
  // open() takes the lowest free descriptor, so each closed one of 0, 1 and 2 is filled in
  // turn; once one lands above 2, all three are taken. Left closed, the port would open as
  // descriptor 1 and the debug log, password and all, would go out on the phone line.
  for (;;) {
    const int fd = open("/dev/null", O_RDWR);
    if (fd < 0) break;  // nothing more can be done; the port's own open is checked as well
    if (fd > STDERR_FILENO) {
      close(fd);
      break;
    }
  }
  // A reader that goes away (| head -1) makes writes fail with EPIPE instead of killing the
  // run mid-call; the failed write is ignored like any other.
  signal(SIGPIPE, SIG_IGN);
}

bool WriteStandardOutput(const std::string& bytes) {
  // Straight to the descriptor, no stdio buffer in between, so nothing waits for an exit flush.
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written = write(STDOUT_FILENO, bytes.data() + done, bytes.size() - done);
    if (written > 0) {
      done += static_cast<size_t>(written);
    } else if (written < 0 && errno == EINTR) {
      continue;
    } else if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      // A non-blocking descriptor handed down by the caller: wait until the reader drains it.
      pollfd ready = {STDOUT_FILENO, POLLOUT, 0};
      if (poll(&ready, 1, -1) < 0 && errno != EINTR) return false;
    } else {
      return false;
    }
  }
  return true;
}

void WriteEventLog(const std::wstring& text, int event_type, int /*event_id*/) {
  int priority = LOG_NOTICE;
  if (event_type == 1) priority = LOG_ERR;
  if (event_type == 4) priority = LOG_INFO;
  // Opened and closed around each record: a logger started after us is still reached, and
  // nothing stays connected for the rest of the run.
  openlog(kEventSource, LOG_PID, LOG_USER);
  syslog(priority, "%s", ToLocale(text).c_str());
  closelog();
}

}  // namespace kw
