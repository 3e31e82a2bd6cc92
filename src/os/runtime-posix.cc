#include "os/runtime-posix.h"

#include <poll.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "os/interrupt.h"
#include "os/locale_text-posix.h"
#include "os/port_switch.h"
#include "os/serial_comm-posix.h"
#include "os/socket_comm.h"

namespace kw {
namespace {

constexpr int64_t kNsPerMs = 1000000;
constexpr int64_t kNsPerSecond = 1000000000;

// The monotonic clock in nanoseconds: a wall-clock jump can't stretch or cut short a wait.
int64_t MonotonicNs() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * kNsPerSecond + now.tv_nsec;
}

// A network port, woken by its socket in the runtime's poll(2).
class PosixSocketComm final : public SocketComm, public PollSource {
 public:
  PosixSocketComm(PollingRuntime& runtime, const NetAddress& address, int64_t limit_ms)
      : SocketComm(address, limit_ms), runtime_(runtime) {}
  ~PosixSocketComm() override { Close(); }

  int WaitDescriptor() const override { return static_cast<int>(WaitHandle()); }
  short WaitEvents() const override {
    return static_cast<short>(WantsRoom() ? POLLIN | POLLOUT : POLLIN);
  }

 private:
  void Watch(bool on) override {
    if (on) {
      runtime_.AddPollSource(this);
    } else {
      runtime_.RemovePollSource(this);
    }
  }

  PollingRuntime& runtime_;
};

// The operating system's runtime: the monotonic clock, poll(2) over the sources' descriptors.
class PosixRuntime final : public PollingRuntime {
 public:
  explicit PosixRuntime(PortDeviceResolver device_for_port)
      : device_for_port_(std::move(device_for_port)) {}

  int64_t NowSeconds() override { return MonotonicNs() / kNsPerSecond; }

  std::wstring NowText() override {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    LoadUserLocale();  // the date and time as the locale writes them
    char text[128];
    const size_t length = std::strftime(text, sizeof text, "%x %X", &local);
    return FromLocale(std::string(text, length));
  }

  void DoEvents() override { sources_.DeliverAll(); }

  void WaitForEvent() override {
    RaiseIfInterrupted();
    std::vector<pollfd> fds;
    for (const PollSource* source : polled_) {
      const int fd = source->WaitDescriptor();
      if (fd >= 0) fds.push_back(pollfd{fd, source->WaitEvents(), 0});
    }
    const int limit_ms = sources_.WaitLimitMs();
    int64_t now = MonotonicNs();
    int64_t deadline = (now / kNsPerSecond + 1) * kNsPerSecond;
    if (limit_ms > 0) deadline = std::min(deadline, now + limit_ms * kNsPerMs);
    for (;;) {
      // Rounded up, and at least 1 ms, so that the clock has surely moved on when it returns.
      const int64_t timeout = std::max<int64_t>(1, (deadline - now + kNsPerMs - 1) / kNsPerMs);
      if (::poll(fds.data(), fds.size(), static_cast<int>(timeout)) >= 0 || errno != EINTR) return;
      // A signal cut the wait short: a request to stop ends it here, not at the deadline.
      RaiseIfInterrupted();
      now = MonotonicNs();
      if (now >= deadline) return;
    }
  }

  void Sleep(int milliseconds) override {
    RaiseIfInterrupted();
    if (milliseconds <= 0) return;
    timespec remaining{milliseconds / 1000, static_cast<long>(milliseconds % 1000) * kNsPerMs};
    while (::nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
      RaiseIfInterrupted();  // the carrier wait sleeps here; a request to stop ends it at once
    }
  }

  // A port's [Ports] entry picks its kind at each opening: a device, or a network port.
  std::unique_ptr<SerialComm> NewSerialComm() override {
    PortMakers makers;
    makers.entry = device_for_port_;
    makers.device = [this](int16_t, const std::wstring& entry) {
      return NewPosixSerialComm(*this, [entry](int16_t port) { return DevicePath(port, entry); });
    };
    makers.network = [this](const NetAddress& address) {
      return std::make_unique<PosixSocketComm>(*this, address, kPortConnectLimitMs);
    };
    return NewPortSwitch(std::move(makers));
  }

  std::unique_ptr<SerialComm> NewConnectionComm(const NetAddress& address,
                                                int64_t limit_ms) override {
    return std::make_unique<PosixSocketComm>(*this, address, limit_ms);
  }

  void AddSource(EventSource* source) override { sources_.Add(source); }

  void RemoveSource(EventSource* source) override { sources_.Remove(source); }

  void AddPollSource(PollSource* source) override {
    AddSource(source);
    if (std::find(polled_.begin(), polled_.end(), source) == polled_.end()) {
      polled_.push_back(source);
    }
  }

  void RemovePollSource(PollSource* source) override {
    RemoveSource(source);
    polled_.erase(std::remove(polled_.begin(), polled_.end(), source), polled_.end());
  }

 private:
  // The configured device for a port, else the platform's: port n is /dev/ttyS<n-1>.
  static std::string DevicePath(int16_t port, const std::wstring& configured) {
    if (!configured.empty()) return ToLocale(configured);
    return "/dev/ttyS" + std::to_string(port - 1);
  }

  PortDeviceResolver device_for_port_;
  EventSources sources_;
  std::vector<PollSource*> polled_;  ///< the sources that also have a descriptor to wait on
};

}  // namespace

std::unique_ptr<PollingRuntime> NewPollingRuntime(PortDeviceResolver device_for_port) {
  return std::make_unique<PosixRuntime>(std::move(device_for_port));
}

std::unique_ptr<Runtime> NewSystemRuntime(PortDeviceResolver device_for_port) {
  return NewPollingRuntime(std::move(device_for_port));
}

}  // namespace kw
