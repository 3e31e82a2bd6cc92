#include "os/serial_comm-posix.h"

#include <time.h>

#include <cerrno>
#include <cstdint>
#include <utility>

#include "base/error.h"
#include "base/text.h"
#include "os/interrupt-posix.h"
#include "os/serial_core.h"
#include "os/serial_errors.h"
#include "os/system_error.h"

namespace kw {
namespace {

/// How long a close lets queued output drain before it drops DTR.
constexpr int64_t kDrainLimitMs = 500;
/// How soon a wait looks again while output drains from the driver, which wakes no poll(2).
constexpr int kDrainLookMs = 10;
/// How soon a wait looks again at the modem-control lines, whose changes wake no poll(2) either.
constexpr int kLineLookMs = 100;

/// What an errno of open(2) on the device says about it.
Cause OpenCause(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ENODEV:
    case ENXIO:
      return Cause::kMissing;
    case EACCES:
    case EPERM:
      return Cause::kNoPermission;
    case EBUSY:  // another run holds it with TIOCEXCL, and we are not root
      return Cause::kBusy;
    case EISDIR:
      return Cause::kNotAPort;
    default:
      return Cause::kOther;
  }
}

/// Who holds the lock file that kept us out, as far as its text tells.
std::wstring LockHolder(const PortLock& lock) {
  const std::wstring file = L" (lock file " + FromLocale(lock.held_file()) + L")";
  if (lock.holder() > 0) return L"in use by process " + std::to_wstring(lock.holder()) + file;
  return L"in use by another program" + file;
}

/// The monotonic clock in milliseconds.
int64_t MonotonicMs() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Closes a descriptor unless it is handed over.
class FdGuard {
 public:
  FdGuard(int fd, const PosixCalls& calls) : fd_(fd), calls_(calls) {}
  ~FdGuard() {
    if (fd_ >= 0) calls_.close(fd_);
  }
  FdGuard(const FdGuard&) = delete;
  FdGuard& operator=(const FdGuard&) = delete;
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
  const PosixCalls& calls_;
};

// The port over a terminal device.
class PosixSerialComm final : public SerialCore, public PollSource {
 public:
  PosixSerialComm(PollingRuntime& runtime, PosixDevicePath device_for_port, std::string lock_folder,
                  PosixCalls calls)
      : runtime_(runtime),
        device_for_port_(std::move(device_for_port)),
        lock_(std::move(lock_folder)),
        calls_(std::move(calls)) {}
  ~PosixSerialComm() override { Close(); }

  int WaitDescriptor() const override { return failed() ? -1 : fd_; }
  short WaitEvents() const override {
    return static_cast<short>(output_queued() ? POLLIN | POLLOUT : POLLIN);
  }

 private:
  void OpenDevice(int16_t port, bool rts_high) override;
  void CloseDevice() noexcept override;
  bool ReadAvailable(std::string* into) override;

  ptrdiff_t Write(const char* data, size_t size) override {
    const ssize_t n = RetryOnEintr([&] { return calls_.write(fd_, data, size); });
    if (n >= 0) return n;
    return errno == EAGAIN || errno == EWOULDBLOCK ? 0 : -1;
  }

  LineStatus ModemLines(unsigned* lines) override {
    int bits = 0;
    if (RetryOnEintr([&] { return calls_.ioctl(fd_, TIOCMGET, &bits); }) != 0) {
      // A pty has no modem-control lines and answers ENOTTY.
      return errno == ENOTTY || errno == EINVAL ? LineStatus::kNoLines : LineStatus::kFailed;
    }
    *lines = ModemLinesOf(static_cast<unsigned>(bits), {TIOCM_CTS, TIOCM_DSR, TIOCM_CD, TIOCM_RI});
    return LineStatus::kKnown;
  }

  void SetLine(ControlLine line, bool high) override {
    int bit = line == ControlLine::kDtr ? TIOCM_DTR : TIOCM_RTS;
    // A pty has no modem-control lines and answers ENOTTY; that is expected and changes nothing.
    RetryOnEintr([&] { return calls_.ioctl(fd_, high ? TIOCMBIS : TIOCMBIC, &bit); });
  }

  void PurgeInput() override {
    RetryOnEintr([&] { return calls_.tcflush(fd_, TCIFLUSH); });
  }

  size_t QueuedOutput() const override {
    int queued = 0;
    if (calls_.ioctl(fd_, TIOCOUTQ, &queued) != 0 || queued < 0) return 0;
    return static_cast<size_t>(queued);
  }

  int DeviceWaitLimitMs(bool send_pending) const override {
    if (send_pending && QueuedOutput() > 0) return kDrainLookMs;
    return has_modem_lines() ? kLineLookMs : -1;
  }

  /// Gives the output up to a bounded time to leave the driver, so that a last "ATH" is on the
  /// line before DTR drops and the line settings change.
  void DrainOutput() noexcept;

  PollingRuntime& runtime_;
  PosixDevicePath device_for_port_;
  PortLock lock_;  ///< the device's lock file while the port is open
  const PosixCalls calls_;
  int fd_ = -1;
  termios original_{};
};

void PosixSerialComm::OpenDevice(int16_t port, bool rts_high) {
  const std::string path = device_for_port_ ? device_for_port_(port) : std::string();
  if (path.empty()) throw InvalidPort();
  // Each failure names the device as the settings wrote it, and the system's reason.
  const std::wstring device = FromLocale(path);

  // Other serial programs mark a port in use with a lock file and never look at flock. The lock
  // comes before the open, so that a run which loses never touches the device: on a pty even a
  // bare open and close would disturb the call of the run that holds it.
  PortLock lock(lock_.folder());
  const PortLock::Result locked = lock.Take(path);
  if (locked == PortLock::Result::kHeld) {
    throw PortAlreadyOpen().WithCause(Cause::kBusy, device, LockHolder(lock));
  }
  if (locked == PortLock::Result::kUnavailable && OnNotice) {
    OnNotice(L"No lock file: " + FromLocale(lock_.folder()) +
             L" can't be written; the port is kept by flock alone.");
  }
  if (locked == PortLock::Result::kStale && OnNotice) {
    OnNotice(L"Stale lock file: " + FromLocale(lock.stale_file()) +
             L" can't be removed; the port is kept by flock alone.");
  }
  // O_NONBLOCK: the open must not wait for carrier. O_NOCTTY: the port must never become our
  // controlling terminal, or a hang-up on it would signal the program.
  FdGuard fd(RetryOnEintr([&] {
               return calls_.open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
             }),
             calls_);
  if (fd.get() < 0) {
    const int error = errno;
    const Cause cause = OpenCause(error);
    throw(cause == Cause::kBusy ? PortAlreadyOpen() : InvalidPort())
        .WithCause(cause, device, SystemErrorText(error));
  }
  // The lock comes before anything touches the port: a second run must leave the first run's
  // line exactly as it is (no settings, no DTR change, no flush, no byte). TIOCEXCL alone
  // doesn't keep out root; flock does. (Some drivers raise DTR in open() itself; nothing
  // can come before that.)
  if (RetryOnEintr([&] { return calls_.flock(fd.get(), LOCK_EX | LOCK_NB); }) != 0) {
    if (errno == EWOULDBLOCK) {
      // As terminal programs hold a port: no lock file, only the flock.
      throw PortAlreadyOpen().WithCause(Cause::kBusy, device,
                                        L"in use by another program (held with flock)");
    }
    throw InvalidPort().WithCause(Cause::kOther, device, SystemErrorText(errno));
  }
  if (!calls_.isatty(fd.get())) {
    throw InvalidPort().WithCause(Cause::kNotAPort, device, SystemErrorText(ENOTTY));
  }

  termios original{};
  if (RetryOnEintr([&] { return calls_.tcgetattr(fd.get(), &original); }) != 0) {
    throw SetStateFailed().WithCause(Cause::kOther, device, SystemErrorText(errno));
  }
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
  if (RetryOnEintr([&] { return calls_.tcsetattr(fd.get(), TCSANOW, &line); }) != 0) {
    throw SetStateFailed().WithCause(Cause::kOther, device, SystemErrorText(errno));
  }
  // A pty keeps what its master wrote while nobody had the port open; that belongs to nobody.
  RetryOnEintr([&] { return calls_.tcflush(fd.get(), TCIFLUSH); });

  fd_ = fd.release();
  lock_ = std::move(lock);
  original_ = original;
  SetPortForForcedEnd(fd_);
  // A modem listens only while DTR is high, and the last close (HUPCL) left it low; not every
  // driver raises it again on open or on a speed change, so raise it by hand.
  SetLine(ControlLine::kDtr, true);
  SetLine(ControlLine::kRts, rts_high);
  // Keeps out openers that don't take the lock (root still gets through; the lock stops it).
  calls_.ioctl(fd_, TIOCEXCL, nullptr);
  runtime_.AddPollSource(this);
}

void PosixSerialComm::CloseDevice() noexcept {
  runtime_.RemovePollSource(this);
  if (!failed()) {
    DrainOutput();
  } else {
    // Nothing leaves a device that is gone; don't let close() wait for it.
    calls_.tcflush(fd_, TCOFLUSH);
  }
  // Drops DTR at once so the modem hangs up, also on drivers that ignore HUPCL.
  SetLine(ControlLine::kDtr, false);
  termios restore = original_;
  // Keeps HUPCL so that whoever opens the port next hangs up on close as well.
  restore.c_cflag |= HUPCL;
  RetryOnEintr([&] { return calls_.tcsetattr(fd_, TCSANOW, &restore); });
  // The exclusive flag can outlive our descriptor on some ttys (a pty's slave lives on with its
  // master); left set, it would shut out the next run that is not root.
  calls_.ioctl(fd_, TIOCNXCL, nullptr);
  SetPortForForcedEnd(-1);
  calls_.close(fd_);  // also releases the flock
  fd_ = -1;
  lock_.Release();  // only now: the device is free once the lock file is gone
}

bool PosixSerialComm::ReadAvailable(std::string* into) {
  pollfd p{fd_, POLLIN, 0};
  if (RetryOnEintr([&] { return calls_.poll(&p, 1, 0); }) <= 0) return true;
  if (p.revents & POLLNVAL) return false;
  const bool ready = (p.revents & POLLIN) != 0;
  const bool broken = (p.revents & (POLLERR | POLLHUP)) != 0;
  if (!ready && !broken) return true;
  // With VMIN=0 a read of 0 means "nothing there" on a live tty; only after poll said the
  // descriptor is ready and nothing at all came does it mean that the device hung up.
  bool gone = false;
  size_t got = 0;
  char buffer[4096];
  for (;;) {
    const ssize_t n = calls_.read(fd_, buffer, sizeof buffer);
    if (n > 0) {
      into->append(buffer, static_cast<size_t>(n));
      got += static_cast<size_t>(n);
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
  return !gone && !(broken && got == 0);
}

void PosixSerialComm::DrainOutput() noexcept {
  const int64_t deadline = MonotonicMs() + kDrainLimitMs;
  while (FlushOutput() && (output_queued() || QueuedOutput() > 0)) {
    const int64_t left = deadline - MonotonicMs();
    if (left <= 0) return;
    // Our own queue waits for room in the driver; the driver's own queue only for time.
    pollfd room{fd_, POLLOUT, 0};
    calls_.poll(&room, output_queued() ? 1 : 0, static_cast<int>(left < 10 ? left : 10));
  }
}

}  // namespace

std::unique_ptr<SerialComm> NewPosixSerialComm(PollingRuntime& runtime,
                                               PosixDevicePath device_for_port,
                                               std::string lock_folder, PosixCalls calls) {
  return std::make_unique<PosixSerialComm>(runtime, std::move(device_for_port),
                                           std::move(lock_folder), std::move(calls));
}

}  // namespace kw
