#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "base/text.h"
#include "os/bounded_write-posix.h"
#include "os/output_budget.h"
#include "os/platform.h"
#include "os/raw_command_line.h"
#include "os/system_error.h"

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

/// A record as syslog(3) sends it: priority, local time (month names in English whatever the
/// locale), our name and process id, the text.
std::string SyslogRecord(int priority, const std::string& text) {
  static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  char head[96];
  std::snprintf(head, sizeof head, "<%d>%s %2d %02d:%02d:%02d %s[%ld]: ", LOG_USER | priority,
                kMonths[local.tm_mon % 12], local.tm_mday, local.tm_hour, local.tm_min,
                local.tm_sec, kEventSource, static_cast<long>(::getpid()));
  return head + text;
}

}  // namespace

const wchar_t kPathSeparator[] = L"/";

std::wstring RawCommandLine() {
  // The kernel keeps argv as it came in, each argument ended by a NUL; the shell has done the
  // splitting and the quoting is gone, so the line is rebuilt for SplitCommandLine.
  // Read with plain calls: a stream would first set up the C++ library's locale, a good part of
  // the time from the start to the first byte on the line.
  std::string bytes;
  const int fd = open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
  char buffer[4096];
  for (ssize_t got = 0; fd >= 0 && (got = read(fd, buffer, sizeof buffer)) != 0;) {
    if (got < 0 && errno != EINTR) break;
    if (got > 0) bytes.append(buffer, static_cast<size_t>(got));
  }
  if (fd >= 0) close(fd);
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

FileProblem FileProblemOf(int code) {
  FileProblem problem;
  problem.cause = code == ENOENT || code == ENOTDIR ? Cause::kMissing
                  : code == EACCES || code == EPERM ? Cause::kNoPermission
                                                    : Cause::kOther;
  problem.reason = SystemErrorText(code);
  return problem;
}

bool PlainFileExists(const std::wstring& path, FileProblem* why) {
  struct stat info;
  if (stat(ToLocale(path).c_str(), &info) != 0) {
    if (why) *why = FileProblemOf(errno);
    return false;
  }
  if (S_ISREG(info.st_mode)) return true;
  if (why) {
    *why = S_ISDIR(info.st_mode) ? FileProblemOf(EISDIR)
                                 : FileProblem{Cause::kOther, L"Not a plain file"};
  }
  return false;
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
  // run mid-call; the failed write is ignored like any other. So does output to a file that
  // reaches the size limit (EFBIG instead of SIGXFSZ).
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}

bool WriteStandardOutput(const std::string& bytes) {
  // Straight to the descriptor, no stdio buffer in between, so nothing waits for an exit flush.
  return BoundedWrite(STDOUT_FILENO, SinkOf(STDOUT_FILENO), bytes, RunOutputBudget());
}

void WriteEventLog(const std::wstring& text, int event_type, int /*event_id*/) {
  int priority = LOG_NOTICE;
  if (event_type == 1) priority = LOG_ERR;
  if (event_type == 4) priority = LOG_INFO;
  // One datagram to the logger's socket, as syslog(3) sends it, but on a socket of our own and
  // within the output budget: syslog(3) waits for good on a logger that reads nothing. A socket
  // per record: a logger started after us is still reached, and nothing stays connected.
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "/dev/log");
  // With no logger there the record is lost, and the run goes on.
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    BoundedWrite(fd, Sink::kSocket, SyslogRecord(priority, ToLocale(text)), RunOutputBudget());
  }
  ::close(fd);
}

void ProtectProcessMemory() {
  // The process holds the centre's password: no core file, and no other user's debugger or
  // reading of /proc/PID/mem, environ and the like (they become root's while it runs).
  ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
  const rlimit no_core{0, 0};
  ::setrlimit(RLIMIT_CORE, &no_core);
}

}  // namespace kw
