#include "sim/pty_io.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/error.h"
#include "base/text.h"

namespace kw::sim {

UniqueFd::~UniqueFd() {
  if (fd_ >= 0) close(fd_);
}

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) close(fd_);
    fd_ = other.release();
  }
  return *this;
}

int UniqueFd::release() {
  const int fd = fd_;
  fd_ = -1;
  return fd;
}

void ThrowSystem(const std::string& what) {
  const int code = errno;
  throw Error(code, kSimSource, FromLocale(what + ": " + std::strerror(code)));
}

int64_t MonotonicNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

RawPty OpenRawPty() {
  RawPty pty;
  pty.master = UniqueFd(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  const int master = pty.master.get();
  if (master < 0) ThrowSystem("posix_openpt");
  if (grantpt(master) != 0) ThrowSystem("grantpt");
  if (unlockpt(master) != 0) ThrowSystem("unlockpt");
  char name[128];
  if (ptsname_r(master, name, sizeof name) != 0) ThrowSystem("ptsname_r");
  pty.slave_path = name;

  // Raw on the master is raw on the slave too (they share one termios): no echo, no CR to LF,
  // so the program gets exactly the bytes the peer sends even before it sets the port up.
  termios tio{};
  if (tcgetattr(master, &tio) != 0) ThrowSystem("tcgetattr");
  cfmakeraw(&tio);
  if (tcsetattr(master, TCSANOW, &tio) != 0) ThrowSystem("tcsetattr");
  const int flags = fcntl(master, F_GETFL);
  if (flags < 0 || fcntl(master, F_SETFL, flags | O_NONBLOCK) != 0) ThrowSystem("fcntl");
  return pty;
}

std::string LineSettings(int fd) {
  termios tio{};
  if (tcgetattr(fd, &tio) != 0) return "?";
  static const std::pair<speed_t, const char*> kSpeeds[] = {
      {B1200, "1200"},   {B2400, "2400"},   {B4800, "4800"},   {B9600, "9600"},
      {B19200, "19200"}, {B38400, "38400"}, {B57600, "57600"}, {B115200, "115200"}};
  std::string text = "?";
  for (const auto& [speed, name] : kSpeeds) {
    if (cfgetospeed(&tio) == speed) text = name;
  }
  const tcflag_t size = tio.c_cflag & CSIZE;
  text += size == CS5 ? " 5" : size == CS6 ? " 6" : size == CS7 ? " 7" : " 8";
  text += !(tio.c_cflag & PARENB) ? "N" : (tio.c_cflag & PARODD) ? "O" : "E";
  return text + ((tio.c_cflag & CSTOPB) ? "2" : "1");
}

UniqueFd WatchOpensAndCloses(const std::string& path) {
  UniqueFd inotify(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (inotify.get() < 0) ThrowSystem("inotify_init1");
  if (inotify_add_watch(inotify.get(), path.c_str(), IN_OPEN | IN_CLOSE_WRITE | IN_CLOSE_NOWRITE) <
      0) {
    ThrowSystem("inotify_add_watch " + path);
  }
  return inotify;
}

void MakeLink(const std::string& target, const std::string& link_path) {
  struct stat st {};
  if (lstat(link_path.c_str(), &st) == 0) {
    if (!S_ISLNK(st.st_mode)) {
      throw Error(EEXIST, kSimSource, FromLocale(link_path + " exists and is not a symlink"));
    }
    if (unlink(link_path.c_str()) != 0) ThrowSystem("unlink " + link_path);
  }
  if (symlink(target.c_str(), link_path.c_str()) != 0) ThrowSystem("symlink " + link_path);
}

void RemoveLinkTo(const std::string& target, const std::string& link_path) {
  char named[256];
  const ssize_t n = readlink(link_path.c_str(), named, sizeof named - 1);
  if (n >= 0 && std::string(named, static_cast<size_t>(n)) == target) unlink(link_path.c_str());
}

}  // namespace kw::sim
