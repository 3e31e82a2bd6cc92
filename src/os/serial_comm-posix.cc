#include "os/serial_comm-posix.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <utility>

#include "base/error.h"
#include "base/text.h"
#include "os/comm_events.h"
#include "os/interrupt-posix.h"
#include "os/serial_errors.h"

namespace kw {
namespace {

/// How long a close lets queued output drain before it drops DTR.
constexpr int64_t kDrainLimitMs = 500;

/// The monotonic clock in milliseconds.
int64_t MonotonicMs() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Repeats a system call that a signal interrupted.
template <typename Call>
auto RetryOnEintr(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

// The errors of a modem-control ioctl that only say "this device has no such lines" (a pty).
bool NoModemLines(int error) { return error == ENOTTY || error == EINVAL; }

// Closes a descriptor unless it is handed over.
class FdGuard {
 public:
  explicit FdGuard(int fd) : fd_(fd) {}
  ~FdGuard() {
    if (fd_ >= 0) ::close(fd_);
  }
  FdGuard(const FdGuard&) = delete;
  FdGuard& operator=(const FdGuard&) = delete;
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

}  // namespace

PosixSerialComm::PosixSerialComm(PollingRuntime& runtime, DevicePath device_for_port,
                                 std::string lock_folder)
    : runtime_(runtime),
      device_for_port_(std::move(device_for_port)),
      lock_(std::move(lock_folder)) {}

PosixSerialComm::~PosixSerialComm() { Close(); }

void PosixSerialComm::SetCommPort(int16_t port) {
  if (fd_ >= 0) throw PortAlreadyOpen();
  port_ = port;
}

void PosixSerialComm::SetRTSEnable(bool enable) {
  rts_enable_ = enable;
  if (fd_ >= 0 && !failed_) SetLine(TIOCM_RTS, enable);
}

void PosixSerialComm::SetPortOpen(bool open) {
  if (open) {
    Open();
  } else {
    Close();
  }
}

void PosixSerialComm::Open() {
  if (fd_ >= 0) throw PortAlreadyOpen();
  if (port_ < 1) throw InvalidPort();
  const std::string path = device_for_port_ ? device_for_port_(port_) : std::string();
  if (path.empty()) throw InvalidPort();

  // Other serial programs mark a port in use with a lock file and never look at flock. The lock
  // comes before the open, so that a run which loses never touches the device: on a pty even a
  // bare open and close would disturb the call of the run that holds it.
  PortLock lock(lock_.folder());
  const PortLock::Result locked = lock.Take(path);
  if (locked == PortLock::Result::kHeld) throw PortAlreadyOpen();
  if (locked == PortLock::Result::kUnavailable && OnNotice) {
    OnNotice(L"No lock file: " + FromLocale(lock_.folder()) +
             L" can't be written; the port is kept by flock alone.");
  }
  // O_NONBLOCK: the open must not wait for carrier. O_NOCTTY: the port must never become our
  // controlling terminal, or a hang-up on it would signal the program.
  FdGuard fd(RetryOnEintr(
      [&] { return ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC); }));
  if (fd.get() < 0) {
    // EBUSY: another run holds the port with TIOCEXCL and we are not root.
    if (errno == EBUSY) throw PortAlreadyOpen();
    throw InvalidPort();
  }
  // The lock comes before anything touches the port: a second run must leave the first run's
  // line exactly as it is (no settings, no DTR change, no flush, no byte). TIOCEXCL alone
  // doesn't keep out root; flock does. (Some drivers raise DTR in open() itself; nothing
  // can come before that.)
  if (RetryOnEintr([&] { return ::flock(fd.get(), LOCK_EX | LOCK_NB); }) != 0) {
    if (errno == EWOULDBLOCK) throw PortAlreadyOpen();
    throw InvalidPort();
  }
  if (!::isatty(fd.get())) throw InvalidPort();

  termios original{};
  if (RetryOnEintr([&] { return ::tcgetattr(fd.get(), &original); }) != 0) throw SetStateFailed();
  termios line = original;
  ::cfmakeraw(&line);
  ::cfsetispeed(&line, B9600);
  ::cfsetospeed(&line, B9600);
  line.c_cflag &= ~(CSIZE | PARENB | CSTOPB | CRTSCTS);
  // CLOCAL: carrier is read through CDHolding; without it a carrier drop would hang up the
  // tty under us. HUPCL: closing (even by a crash) drops DTR, so the modem hangs up.
  line.c_cflag |= CS8 | CREAD | CLOCAL | HUPCL;
  line.c_iflag &= ~(IXON | IXOFF | IXANY);
  // Reads return at once with what is there; poll(2) does the waiting.
  line.c_cc[VMIN] = 0;
  line.c_cc[VTIME] = 0;
  if (RetryOnEintr([&] { return ::tcsetattr(fd.get(), TCSANOW, &line); }) != 0) {
    throw SetStateFailed();
  }
  // A pty keeps what its master wrote while nobody had the port open; that belongs to nobody.
  RetryOnEintr([&] { return ::tcflush(fd.get(), TCIFLUSH); });

  fd_ = fd.release();
  lock_ = std::move(lock);
  ++generation_;
  original_ = original;
  failed_ = false;
  in_queue_.clear();
  out_queue_.clear();
  input_unsignaled_ = false;
  notice_unread_ = false;
  send_armed_ = false;
  carried_ = false;
  comm_event_ = 0;
  SetPortForForcedEnd(fd_);

  // A modem listens only while DTR is high, and the last close (HUPCL) left it low; not every
  // driver raises it again on open or on a speed change, so raise it by hand.
  SetLine(TIOCM_DTR, true);
  SetLine(TIOCM_RTS, rts_enable_);
  int bits = 0;
  has_modem_lines_ = RetryOnEintr([&] { return ::ioctl(fd_, TIOCMGET, &bits); }) == 0;
  last_modem_bits_ = has_modem_lines_ ? bits : 0;
  // Keeps out openers that don't take the lock (root still gets through; the lock stops it).
  ::ioctl(fd_, TIOCEXCL);
  runtime_.AddPollSource(this);
}

void PosixSerialComm::Close() noexcept {
  if (fd_ < 0) return;
  runtime_.RemovePollSource(this);
  if (!failed_) {
    DrainOutput();
  } else {
    // Nothing leaves a device that is gone; don't let close() wait for it.
    ::tcflush(fd_, TCOFLUSH);
  }
  // Drops DTR at once so the modem hangs up, also on drivers that ignore HUPCL.
  SetLine(TIOCM_DTR, false);
  termios restore = original_;
  // Keeps HUPCL so that whoever opens the port next hangs up on close as well.
  restore.c_cflag |= HUPCL;
  RetryOnEintr([&] { return ::tcsetattr(fd_, TCSANOW, &restore); });
  // The exclusive flag can outlive our descriptor on some ttys (a pty's slave lives on with its
  // master); left set, it would shut out the next run that is not root.
  ::ioctl(fd_, TIOCNXCL);
  SetPortForForcedEnd(-1);
  ::close(fd_);  // also releases the flock
  fd_ = -1;
  lock_.Release();  // only now: the device is free once the lock file is gone
  ++generation_;
  failed_ = false;
  has_modem_lines_ = false;
  in_queue_.clear();
  out_queue_.clear();
  input_unsignaled_ = false;
  notice_unread_ = false;
  send_armed_ = false;
}

void PosixSerialComm::SetLine(int line, bool high) {
  // A pty has no modem-control lines and answers ENOTTY; that is expected and changes nothing.
  RetryOnEintr([&] { return ::ioctl(fd_, high ? TIOCMBIS : TIOCMBIC, &line); });
}

void PosixSerialComm::SetInBufferCount(int16_t count) {
  if (fd_ < 0) throw PortNotOpen();
  if (count != 0) return;
  if (!failed_) RetryOnEintr([&] { return ::tcflush(fd_, TCIFLUSH); });
  in_queue_.clear();
  input_unsignaled_ = false;
  // After the device is gone nothing else will come; the notice must still reach the link.
  if (notice_unread_) in_queue_ = kLostLineNotice;
}

void PosixSerialComm::SetOutput(const std::wstring& text) {
  if (fd_ < 0) throw PortNotOpen();
  // The line is gone: dropping the bytes is all there is to do, and raising here would bury
  // the lost line that the link is about to report.
  if (failed_) return;
  out_queue_ += ToLine(text);
  send_armed_ = true;
  const int refused = FlushOutput();
  if (refused == 0) return;
  if (carried_) {
    // The line carried bytes and now fails: the device went away in the call, a lost line.
    Fail();
    return;
  }
  // Not one byte got out since the opening: the port refuses to write, and that is the
  // caller's failure to report (a dial that can't be written), not a call that was lost.
  Fail(false);
  throw WriteFailed();
}

int PosixSerialComm::DriverOutput() const {
  int queued = 0;
  if (fd_ < 0 || failed_ || ::ioctl(fd_, TIOCOUTQ, &queued) != 0 || queued < 0) return 0;
  return queued;
}

int16_t PosixSerialComm::OutBufferCount() {
  const size_t total = out_queue_.size() + static_cast<size_t>(DriverOutput());
  return static_cast<int16_t>(total > 32767 ? 32767 : total);
}

std::wstring PosixSerialComm::Input() {
  if (fd_ < 0) throw PortNotOpen();
  if (!failed_) ReadAvailable();
  std::wstring text = FromLine(in_queue_);
  in_queue_.clear();
  input_unsignaled_ = false;
  notice_unread_ = false;
  return text;
}

bool PosixSerialComm::CDHolding() {
  if (fd_ < 0 || failed_) return false;
  int bits = 0;
  if (RetryOnEintr([&] { return ::ioctl(fd_, TIOCMGET, &bits); }) == 0) {
    return (bits & TIOCM_CD) != 0;
  }
  // Without modem-control lines (a pty) there is no carrier to lose: the line counts as up.
  return NoModemLines(errno);
}

void PosixSerialComm::ReadAvailable() {
  pollfd p{fd_, POLLIN, 0};
  if (RetryOnEintr([&] { return ::poll(&p, 1, 0); }) <= 0) return;
  if (p.revents & POLLNVAL) {
    Fail();
    return;
  }
  const bool ready = (p.revents & POLLIN) != 0;
  const bool broken = (p.revents & (POLLERR | POLLHUP)) != 0;
  if (!ready && !broken) return;
  // With VMIN=0 a read of 0 means "nothing there" on a live tty; only after poll said the
  // descriptor is ready and nothing at all came does it mean that the device hung up.
  bool gone = false;
  size_t got = 0;
  char buffer[4096];
  for (;;) {
    const ssize_t n = ::read(fd_, buffer, sizeof buffer);
    if (n > 0) {
      in_queue_.append(buffer, static_cast<size_t>(n));
      got += static_cast<size_t>(n);
      input_unsignaled_ = true;
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n == 0) {
      gone = got == 0;
    } else if (errno != EAGAIN && errno != EWOULDBLOCK) {
      gone = true;  // EIO: a USB adapter pulled out, or the pty's master closed
    }
    break;
  }
  if (gone || (broken && got == 0)) Fail();
}

int PosixSerialComm::FlushOutput() {
  while (!out_queue_.empty() && !failed_) {
    const ssize_t n = ::write(fd_, out_queue_.data(), out_queue_.size());
    if (n > 0) {
      out_queue_.erase(0, static_cast<size_t>(n));
      carried_ = true;
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
      return errno;
    } else {
      break;
    }
  }
  return 0;
}

void PosixSerialComm::DrainOutput() noexcept {
  const int64_t deadline = MonotonicMs() + kDrainLimitMs;
  while (FlushOutput() == 0 && (!out_queue_.empty() || DriverOutput() > 0)) {
    const int64_t left = deadline - MonotonicMs();
    if (left <= 0) return;
    // Our own queue waits for room in the driver; the driver's own queue only for time.
    pollfd room{fd_, POLLOUT, 0};
    ::poll(&room, out_queue_.empty() ? 0 : 1, static_cast<int>(left < 10 ? left : 10));
  }
}

void PosixSerialComm::Fail(bool lost_line) {
  if (failed_) return;
  // Whatever the driver still holds came before the loss and is read first.
  char buffer[4096];
  for (;;) {
    const ssize_t n = ::read(fd_, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    in_queue_.append(buffer, static_cast<size_t>(n));
  }
  failed_ = true;
  out_queue_.clear();
  if (!lost_line) return;
  in_queue_ += kLostLineNotice;
  input_unsignaled_ = true;
  notice_unread_ = true;
}

bool PosixSerialComm::Raise(int16_t event, uint64_t generation) {
  CallOnComm(OnComm, comm_event_, event);
  return fd_ >= 0 && generation_ == generation;
}

void PosixSerialComm::DeliverPending() {
  if (fd_ < 0) return;
  const uint64_t generation = generation_;
  // Each event's cause is cleared before its handler runs, so that a handler which delivers
  // events again (nested) sees only what is new and is not called again for the same thing.
  if (!failed_) ReadAvailable();
  if (rthreshold_ > 0 && input_unsignaled_ && !in_queue_.empty() &&
      (in_queue_.size() >= static_cast<size_t>(rthreshold_) || failed_)) {
    input_unsignaled_ = false;
    if (!Raise(kCommEvReceive, generation)) return;
  }

  if (!failed_ && FlushOutput() != 0) Fail();
  if (send_armed_ && sthreshold_ > 0 && OutBufferCount() < sthreshold_) {
    send_armed_ = false;
    if (!Raise(kCommEvSend, generation)) return;
  }

  if (!has_modem_lines_ || failed_) return;
  int bits = 0;
  if (RetryOnEintr([&] { return ::ioctl(fd_, TIOCMGET, &bits); }) != 0) return;
  const int before = std::exchange(last_modem_bits_, bits);
  RaiseLineChanges(before, bits, {TIOCM_CTS, TIOCM_DSR, TIOCM_CD, TIOCM_RI},
                   [&](int16_t event) { return Raise(event, generation); });
}

int PosixSerialComm::WaitDescriptor() const { return fd_ >= 0 && !failed_ ? fd_ : -1; }

short PosixSerialComm::WaitEvents() const {
  return static_cast<short>(out_queue_.empty() ? POLLIN : POLLIN | POLLOUT);
}

int PosixSerialComm::WaitLimitMs() const {
  if (fd_ < 0 || failed_) return -1;
  // Output draining from the driver raises no descriptor event; look again soon.
  if (send_armed_ && sthreshold_ > 0 && out_queue_.empty() && DriverOutput() > 0) return 10;
  // Modem-control line changes raise no descriptor event either.
  if (has_modem_lines_) return 100;
  return -1;
}

}  // namespace kw
