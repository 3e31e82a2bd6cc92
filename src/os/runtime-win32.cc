// The operating system's runtime on Windows: the tick clock, waits that sleep, real serial ports.
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "os/com_port_name.h"
#include "os/interrupt.h"
#include "os/port_switch.h"
#include "os/serial_comm-win32.h"
#include "os/socket_comm.h"
#include "os/system_runtime.h"

namespace kw {
namespace {

constexpr int64_t kMsPerSecond = 1000;
// The longest piece of a sleep: how soon a request to stop is seen while the run waits.
constexpr int64_t kInterruptLookMs = 100;

// The tick clock in milliseconds: it never jumps with the wall clock, so no wait is stretched
// or cut short by a change of the time of day.
int64_t TickMs() { return static_cast<int64_t>(::GetTickCount64()); }

// One of the user's default date or time forms for a moment, or "" when it can't be had.
template <typename Format>
std::wstring FormatWith(Format format) {
  const int length = format(nullptr, 0);
  if (length <= 1) return std::wstring();
  std::wstring text(static_cast<size_t>(length), L'\0');
  format(&text[0], length);
  text.resize(static_cast<size_t>(length - 1));  // the count includes the terminator
  return text;
}

// A network port. Nothing wakes a wait when bytes arrive here either: the port asks to be
// looked at often while it is open.
class Win32SocketComm final : public SocketComm {
 public:
  Win32SocketComm(Runtime& runtime, const NetAddress& address, int64_t limit_ms)
      : SocketComm(address, limit_ms), runtime_(runtime) {}
  ~Win32SocketComm() override { Close(); }

 private:
  // A network round trip takes milliseconds: a look every 10 ms keeps the dialogue quick.
  int DeviceWaitLimitMs(bool) const override { return 10; }
  void Watch(bool on) override {
    if (on) {
      runtime_.AddSource(this);
    } else {
      runtime_.RemoveSource(this);
    }
  }

  Runtime& runtime_;
};

class Win32Runtime final : public Runtime {
 public:
  explicit Win32Runtime(PortDeviceResolver device_for_port)
      : device_for_port_(std::move(device_for_port)) {}

  int64_t NowSeconds() override { return TickMs() / kMsPerSecond; }

  std::wstring NowText() override {
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    const std::wstring date = FormatWith([&](wchar_t* out, int size) {
      return ::GetDateFormatW(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &now, nullptr, out, size);
    });
    const std::wstring time = FormatWith([&](wchar_t* out, int size) {
      return ::GetTimeFormatW(LOCALE_USER_DEFAULT, 0, &now, nullptr, out, size);
    });
    return date + L" " + time;
  }

  // Sleeps for at most the rest, in pieces short enough that a request to stop, which wakes
  // no sleep here, ends the wait soon; then raises it.
  static void SleepPiece(int64_t rest_ms) {
    ::Sleep(static_cast<DWORD>(std::clamp<int64_t>(rest_ms, 1, kInterruptLookMs)));
    RaiseIfInterrupted();
  }

  void DoEvents() override { sources_.DeliverAll(); }

  void WaitForEvent() override {
    RaiseIfInterrupted();
    // A port wakes nothing here (its change events don't work everywhere), so the wait sleeps
    // until the smallest of the sources' limits, after which they look at their devices again.
    const int limit_ms = sources_.WaitLimitMs();
    int64_t now = TickMs();
    int64_t deadline = (now / kMsPerSecond + 1) * kMsPerSecond;
    if (limit_ms > 0) deadline = std::min(deadline, now + limit_ms);
    // Sleep may end a little before the tick clock shows its time (their steps differ): sleep
    // again for the rest, so that the clock has surely moved on when the wait returns.
    for (; now < deadline; now = TickMs()) {
      SleepPiece(deadline - now);
    }
  }

  void Sleep(int milliseconds) override {
    RaiseIfInterrupted();
    const int64_t deadline = TickMs() + milliseconds;
    for (int64_t now = TickMs(); now < deadline; now = TickMs()) SleepPiece(deadline - now);
  }

  // A port's [Ports] entry picks its kind at each opening: a device, or a network port.
  std::unique_ptr<SerialComm> NewSerialComm() override {
    PortMakers makers;
    makers.entry = device_for_port_;
    makers.device = [this](int16_t, const std::wstring& entry) {
      return NewWin32SerialComm(*this, [entry](int16_t port) { return DevicePath(port, entry); });
    };
    makers.network = [this](const NetAddress& address) {
      return std::make_unique<Win32SocketComm>(*this, address, kPortConnectLimitMs);
    };
    return NewPortSwitch(std::move(makers));
  }

  std::unique_ptr<SerialComm> NewConnectionComm(const NetAddress& address,
                                                int64_t limit_ms) override {
    return std::make_unique<Win32SocketComm>(*this, address, limit_ms);
  }

  void AddSource(EventSource* source) override { sources_.Add(source); }

  void RemoveSource(EventSource* source) override { sources_.Remove(source); }

 private:
  // The configured device for a port, else the platform's: port n is \\.\COMn, a form that
  // also reaches COM10 and above, and so is a configured bare COMn.
  static std::wstring DevicePath(int16_t port, const std::wstring& configured) {
    if (!configured.empty()) return ComPortDevicePath(configured);
    return L"\\\\.\\COM" + std::to_wstring(port);
  }

  PortDeviceResolver device_for_port_;
  EventSources sources_;
};

}  // namespace

std::unique_ptr<Runtime> NewSystemRuntime(PortDeviceResolver device_for_port) {
  return std::make_unique<Win32Runtime>(std::move(device_for_port));
}

}  // namespace kw
