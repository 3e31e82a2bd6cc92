#include "os/port_lock-posix.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <ctime>
#include <utility>

#include "os/interrupt-posix.h"

namespace kw {
namespace {

/// How long contention on a lock file may last before the device counts as held.
constexpr int kAttempts = 50;
constexpr long kPauseNs = 10 * 1000 * 1000;
/// A lock file younger than this whose text is no process id may still be being written.
constexpr time_t kWritingSeconds = 10;

/// What looking at an existing lock file found.
enum class Verdict {
  kHeld,   ///< a live process holds it, it can't be read, or its writer may not be done
  kGone,   ///< it is no longer there (it was stale and is removed now, or someone else did)
  kBusy,   ///< another process is dealing with it right now
  kStuck,  ///< it is stale, but this user may not remove it
};

/// Repeats a system call that a signal interrupted.
template <typename Call>
auto RetryOnEintr(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace

/// The process id in a lock file's text: HDB (ASCII digits, blanks around them); -1 for none.
pid_t ParsePid(const std::string& text) {
  size_t i = text.find_first_not_of(' ');
  long long pid = 0;
  size_t digits = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9' && digits < 10; ++i, ++digits) {
    pid = pid * 10 + (text[i] - '0');
  }
  if (digits == 0 || pid <= 0 || pid > INT_MAX) return -1;
  if (text.find_first_not_of(" \n", i) != std::string::npos) return -1;
  return static_cast<pid_t>(pid);
}

namespace {

/// The process id that the lock file at the path names; -1 for none.
pid_t LockFilePid(const std::string& path) {
  const int fd = RetryOnEintr(
      [&] { return ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); });
  if (fd < 0) return -1;
  char buffer[64];
  const ssize_t n = RetryOnEintr([&] { return ::read(fd, buffer, sizeof buffer); });
  ::close(fd);
  return ParsePid(n > 0 ? std::string(buffer, static_cast<size_t>(n)) : "");
}

/// Whether the process exists; one of another user (EPERM) does too.
bool Alive(pid_t pid) { return ::kill(pid, 0) == 0 || errno == EPERM; }

/// Whether the descriptor and the path name the same file.
bool SameFile(int fd, const std::string& path) {
  struct stat open_one {};
  struct stat named {};
  return ::fstat(fd, &open_one) == 0 && ::lstat(path.c_str(), &named) == 0 &&
         open_one.st_dev == named.st_dev && open_one.st_ino == named.st_ino;
}

/// Judges the lock file that stands at the path, and removes it when it is stale.
Verdict Judge(const std::string& path) {
  const int fd = RetryOnEintr(
      [&] { return ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); });
  if (fd < 0) return errno == ENOENT ? Verdict::kGone : Verdict::kHeld;
  char buffer[64];
  const ssize_t n = RetryOnEintr([&] { return ::read(fd, buffer, sizeof buffer); });
  const pid_t pid = ParsePid(n > 0 ? std::string(buffer, static_cast<size_t>(n)) : "");
  const pid_t self = ::getpid();
  struct stat info {};
  const bool young =
      ::fstat(fd, &info) == 0 && std::time(nullptr) - info.st_mtime < kWritingSeconds;
  Verdict verdict = Verdict::kGone;
  if (pid > 0 && pid != self && Alive(pid)) {
    verdict = Verdict::kHeld;
  } else if (pid < 0 && young) {
    verdict = Verdict::kHeld;  // another program may have made it and not yet written its id
  } else if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    // Our own lock files stay flock'ed while held; a file of our own id that is locked belongs
    // to another port object of this process. Otherwise another run is removing the stale file.
    verdict = pid == self ? Verdict::kHeld : Verdict::kBusy;
  } else if (SameFile(fd, path) && ::unlink(path.c_str()) != 0 && errno != ENOENT) {
    // Stale, and holding the flock we are the only remover; the check of the name keeps us from
    // removing a fresh lock that replaced the stale file meanwhile. A stale lock of another user
    // in a sticky folder (root's, of a run that was killed) can't be removed.
    verdict = Verdict::kStuck;
  }
  ::close(fd);
  return verdict;
}

}  // namespace

std::string PortLockName(const std::string& device) {
  static const std::string kDev = "/dev/";
  std::string name =
      device.compare(0, kDev.size(), kDev) == 0 ? device.substr(kDev.size()) : device;
  while (!name.empty() && name[0] == '/') name.erase(0, 1);
  for (char& c : name) {
    if (c == '/') c = '_';
  }
  return "LCK.." + name;
}

std::string PortLockText(pid_t pid) {
  // Not through snprintf: the first formatted print of a run costs more than the whole lock.
  std::string text = std::to_string(pid);
  if (text.size() < 10) text.insert(0, 10 - text.size(), ' ');
  return text + "\n";
}

std::string SystemPortLockFolder() {
  struct stat info {};
  if (::stat("/run/lock", &info) == 0 && S_ISDIR(info.st_mode)) return "/run/lock";
  return "/var/lock";
}

PortLock::PortLock(std::string folder) : folder_(std::move(folder)) {}

PortLock::~PortLock() { Release(); }

PortLock::PortLock(PortLock&& other) noexcept
    : folder_(std::move(other.folder_)),
      path_(std::exchange(other.path_, std::string())),
      fd_(std::exchange(other.fd_, -1)) {}

PortLock& PortLock::operator=(PortLock&& other) noexcept {
  if (this != &other) {
    Release();
    folder_ = std::move(other.folder_);
    path_ = std::exchange(other.path_, std::string());
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

PortLock::Result PortLock::Take(const std::string& device) {
  Release();
  // The name must be the same whichever link to the device a program was given.
  char* real = ::realpath(device.c_str(), nullptr);
  const std::string path = folder_ + "/" + PortLockName(real ? real : device);
  ::free(real);

  // The file is written in full under a name of its own and then linked to the lock's name:
  // link(2) fails if the name exists, so of several runs exactly one wins, and no program ever
  // reads a half-written lock of ours.
  const std::string temp = folder_ + "/LTMP." + std::to_string(::getpid());
  ::unlink(temp.c_str());  // a leftover of an earlier process that had our id
  const int fd = RetryOnEintr([&] {
    return ::open(temp.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
  });
  if (fd < 0) return Result::kUnavailable;
  const std::string text = PortLockText(::getpid());
  // Readable by every user's serial programs, whatever the umask.
  const bool written = RetryOnEintr([&] { return ::write(fd, text.data(), text.size()); }) ==
                           static_cast<ssize_t>(text.size()) &&
                       ::fchmod(fd, 0644) == 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0;
  Result result = written ? Result::kHeld : Result::kUnavailable;
  // Named from now on: a second request to stop removes the file if it becomes ours.
  SetLockFileForForcedEnd(path.c_str(), fd);
  for (int attempt = 0; written && attempt < kAttempts; ++attempt) {
    if (::link(temp.c_str(), path.c_str()) == 0) {
      result = Result::kTaken;
      break;
    }
    if (errno != EEXIST) {
      result = Result::kUnavailable;
      break;
    }
    const Verdict verdict = Judge(path);
    if (verdict == Verdict::kHeld) break;
    if (verdict == Verdict::kStuck) {
      // Not the file of a live run: the device's flock and exclusive open, which the kernel
      // drops when a process dies, keep the port for one run at a time without it.
      result = Result::kStale;
      break;
    }
    if (verdict == Verdict::kBusy) {
      timespec pause{0, kPauseNs};
      ::nanosleep(&pause, nullptr);
    }
  }
  ::unlink(temp.c_str());
  held_file_ = result == Result::kHeld ? path : std::string();
  holder_ = result == Result::kHeld ? LockFilePid(path) : -1;
  if (result == Result::kTaken) {
    path_ = path;
    fd_ = fd;
  } else {
    SetLockFileForForcedEnd(nullptr, -1);
    ::close(fd);
  }
  stale_ = result == Result::kStale ? path : std::string();
  return result;
}

void PortLock::Release() noexcept {
  if (fd_ < 0) return;
  SetLockFileForForcedEnd(nullptr, -1);
  // Only our own file goes: someone may have removed ours and put up a lock of their own.
  if (SameFile(fd_, path_)) ::unlink(path_.c_str());
  ::close(fd_);
  fd_ = -1;
  path_.clear();
}

}  // namespace kw
