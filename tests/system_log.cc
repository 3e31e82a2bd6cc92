#include "system_log.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace kw {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// The socket that syslog(3) writes to.
constexpr char kSocket[] = "/dev/log";
/// Held by the test process that uses the logger, so that the next one waits its turn.
constexpr char kLockPath[] = "/tmp/kestrawind-system-log.lock";
/// Where our logger notes its pid, so that a later process can stop one a dead test left.
constexpr char kPidPath[] = "/tmp/kestrawind-system-log.pid";
/// The start of our logger's temp folder, which its command line names.
constexpr char kFolderPrefix[] = "/tmp/kw-syslog-";
/// How long the logger may take to start or stop.
constexpr int kLoggerMs = 5000;
/// How long a test process waits for the one before it to finish with the logger.
constexpr int kLockMs = 60000;

/// Polls the condition every 20 ms until it holds or the time is up; true when it held.
template <typename Condition>
bool WaitUntil(Condition condition, int timeout_ms) {
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  for (;;) {
    if (condition()) return true;
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

bool Exists(const char* path) {
  struct stat info;
  return lstat(path, &info) == 0;
}

/// Whether a logger takes datagrams on the socket; a socket whose logger died refuses them.
bool SomeoneListens() {
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, kSocket, sizeof(address.sun_path) - 1);
  const bool ok = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
  close(fd);
  return ok;
}

/// Removes a socket that no logger reads any more (one stopped by SIGKILL or failing at start).
void RemoveDeadSocket() {
  if (Exists(kSocket) && !SomeoneListens()) unlink(kSocket);
}

std::string ReadWhole(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

/// Whether the process is gone; a zombie that nobody reaps counts as gone.
bool ProcessGone(pid_t pid) {
  if (kill(pid, 0) != 0 && errno == ESRCH) return true;
  const std::string stat = ReadWhole("/proc/" + std::to_string(pid) + "/stat");
  const size_t paren = stat.rfind(')');
  return paren == std::string::npos || stat.compare(paren, 3, ") Z") == 0;
}

/// The rsyslogd program on the search path or in the sbin folders; empty when there is none.
std::string FindRsyslogd() {
  std::string folders = "/usr/sbin:/sbin";
  if (const char* path = std::getenv("PATH")) folders = std::string(path) + ":" + folders;
  std::istringstream list(folders);
  for (std::string folder; std::getline(list, folder, ':');) {
    const std::string candidate = folder + "/rsyslogd";
    if (!folder.empty() && access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return std::string();
}

}  // namespace

SystemLogCapture::SystemLogCapture() {
  if (!TakeLock()) return;
  StopLeftover();
  RemoveDeadSocket();
  if (Exists(kSocket)) {
    UseForeignLogger();
  } else {
    StartOwnLogger();
  }
}

SystemLogCapture::~SystemLogCapture() {
  StopOwnLogger();
  if (lockFd_ >= 0) close(lockFd_);  // gives the lock to the next test process
}

bool SystemLogCapture::TakeLock() {
  lockFd_ = open(kLockPath, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (lockFd_ < 0) {
    reason_ = std::string("can't open ") + kLockPath + ": " + std::strerror(errno);
    return false;
  }
  if (!WaitUntil([this] { return flock(lockFd_, LOCK_EX | LOCK_NB) == 0; }, kLockMs)) {
    reason_ = "another test process kept the system logger for over a minute";
    return false;
  }
  return true;
}

void SystemLogCapture::StopLeftover() {
  // We hold the lock, so a logger of ours still running belongs to a test that died before
  // its destructor (a crash or a timeout kill).
  const pid_t pid = std::atoi(ReadWhole(kPidPath).c_str());
  if (pid <= 0) return;
  const std::string proc = "/proc/" + std::to_string(pid);
  const bool ours = ReadWhole(proc + "/comm") == "rsyslogd\n" &&
                    ReadWhole(proc + "/cmdline").find(kFolderPrefix) != std::string::npos;
  if (ours && kill(pid, SIGTERM) == 0) {
    WaitUntil([pid] { return ProcessGone(pid); }, kLoggerMs);
  }
  unlink(kPidPath);
}

void SystemLogCapture::StartOwnLogger() {
  if (geteuid() != 0) {
    state_ = State::kUnavailable;
    reason_ = "no logger listens on /dev/log and only root may start one there";
    return;
  }
  const std::string program = FindRsyslogd();
  if (program.empty()) {
    reason_ = "rsyslogd is not installed (apt-get install -y rsyslog)";
    return;
  }
  std::string pattern = std::string(kFolderPrefix) + "XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    reason_ = std::string("can't make a temp folder: ") + std::strerror(errno);
    return;
  }
  folder_ = pattern;
  file_ = folder_ + "/messages";
  const std::string config = folder_ + "/rsyslog.conf";
  {
    std::ofstream out(config);
    out << "module(load=\"imuxsock\" SysSock.Use=\"on\")\n"
        << "template(name=\"kwline\" type=\"string\""
        << " string=\"%syslogtag% %syslogseverity-text% %msg%\\n\")\n"
        << "*.* action(type=\"omfile\" file=\"" << file_ << "\" template=\"kwline\")\n";
  }

  // -n keeps rsyslogd in the foreground as our child: we learn its pid at once, reap it
  // ourselves, and know for sure when it has gone.
  const pid_t child = fork();
  if (child < 0) {
    reason_ = std::string("fork failed: ") + std::strerror(errno);
    return;
  }
  if (child == 0) {
    const int null = open("/dev/null", O_WRONLY);
    if (null >= 0) dup2(null, STDOUT_FILENO);
    execl(program.c_str(), "rsyslogd", "-n", "-f", config.c_str(), "-i", kPidPath,
          static_cast<char*>(nullptr));
    _exit(127);
  }
  ownLogger_ = child;

  int status = 0;
  bool exited = false;
  const bool up = WaitUntil(
      [&] {
        exited = waitpid(child, &status, WNOHANG) == child;
        return exited || SomeoneListens();
      },
      kLoggerMs);
  if (exited) {
    ownLogger_ = -1;
    RemoveDeadSocket();
    reason_ = "rsyslogd stopped at once with status " + std::to_string(status) +
              " (see its message above)";
  } else if (!up) {
    reason_ = "rsyslogd did not open /dev/log within 5 s";
  } else {
    state_ = State::kReady;
  }
}

void SystemLogCapture::UseForeignLogger() {
  // A logger that isn't ours: read the file it writes, starting behind what is there now.
  for (const char* candidate : {"/var/log/syslog", "/var/log/messages", "/var/log/user.log"}) {
    struct stat info;
    if (access(candidate, R_OK) == 0 && stat(candidate, &info) == 0) {
      file_ = candidate;
      start_ = info.st_size;
      state_ = State::kReady;
      return;
    }
  }
  state_ = State::kUnavailable;
  reason_ =
      "a logger that isn't ours listens on /dev/log and writes none of /var/log/syslog, "
      "/var/log/messages, /var/log/user.log";
}

void SystemLogCapture::StopOwnLogger() {
  if (ownLogger_ != -1) {
    kill(ownLogger_, SIGTERM);
    int status = 0;
    const pid_t pid = ownLogger_;
    if (!WaitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }, kLoggerMs)) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
    }
    ownLogger_ = -1;
    RemoveDeadSocket();  // rsyslogd removes it itself only when it stops in order
    unlink(kPidPath);
  }
  if (!folder_.empty()) {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
    folder_.clear();
  }
}

bool SystemLogCapture::WaitForLine(const std::string& needle, int timeout_ms,
                                   std::string* line) const {
  if (state_ != State::kReady) return false;
  return WaitUntil(
      [&] {
        std::ifstream file(file_, std::ios::binary);
        if (!file) return false;  // our logger makes the file with its first record
        file.seekg(start_);
        // Only whole lines count: the last one may still be half written.
        for (std::string candidate; std::getline(file, candidate) && !file.eof();) {
          if (candidate.find(needle) != std::string::npos) {
            *line = candidate;
            return true;
          }
        }
        return false;
      },
      timeout_ms);
}

}  // namespace kw
