#include "os/serial_comm-win32.h"

#include <windows.h>

#include <cwctype>
#include <utility>

#include "base/error.h"
#include "os/interrupt-win32.h"
#include "os/serial_core.h"
#include "os/serial_errors.h"
#include "os/system_error.h"

namespace kw {
namespace {

// How often an open port is looked at while the program waits: a few times a second.
constexpr int kLookIntervalMs = 100;

// The name of the mutex that stands for a port: one name for every spelling of one device
// ("COM1", "\\.\com1"), and no backslash, which a mutex name may not hold past its prefix.
std::wstring PortMutexName(const std::wstring& device) {
  std::wstring name = device;
  const std::wstring kDevicePrefix = L"\\\\.\\";
  if (name.compare(0, kDevicePrefix.size(), kDevicePrefix) == 0)
    name.erase(0, kDevicePrefix.size());
  for (wchar_t& c : name) c = c == L'\\' ? L'/' : static_cast<wchar_t>(std::towupper(c));
  // Global: a run in another session (a scheduled task, a service) is kept out as well.
  return L"Global\\Kestrawind.Port." + name;
}

// What a failed CreateFileW of the device says about it. A COM port that another program has
// open answers "access denied"; so does a folder, which is no port.
Cause OpenCause(DWORD error, const std::wstring& path) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
      return Cause::kMissing;
    case ERROR_ACCESS_DENIED: {
      const DWORD attributes = ::GetFileAttributesW(path.c_str());
      const bool folder =
          attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      return folder ? Cause::kNotAPort : Cause::kBusy;
    }
    case ERROR_SHARING_VIOLATION:
      return Cause::kBusy;
    default:
      return Cause::kOther;
  }
}

// Closes a handle unless it is handed over.
class HandleGuard {
 public:
  explicit HandleGuard(HANDLE handle, HANDLE none) : handle_(handle), none_(none) {}
  ~HandleGuard() {
    if (handle_ != none_) ::CloseHandle(handle_);
  }
  HandleGuard(const HandleGuard&) = delete;
  HandleGuard& operator=(const HandleGuard&) = delete;
  HANDLE get() const { return handle_; }
  HANDLE release() { return std::exchange(handle_, none_); }

 private:
  HANDLE handle_;
  HANDLE none_;
};

// The port over a communications device. Nothing wakes a wait when bytes arrive, so the port
// wants to be looked at again soon whenever it is open.
class Win32SerialComm final : public SerialCore {
 public:
  Win32SerialComm(Runtime& runtime, Win32DevicePath device_for_port)
      : runtime_(runtime), device_for_port_(std::move(device_for_port)) {}
  ~Win32SerialComm() override { Close(); }

 private:
  void OpenDevice(int16_t port, bool rts_high) override;
  void CloseDevice() noexcept override;
  bool ReadAvailable(std::string* into) override;

  // The write timeouts set at the opening bound how long this blocks.
  ptrdiff_t Write(const char* data, size_t size) override {
    DWORD written = 0;
    const bool ok = ::WriteFile(handle_, data, static_cast<DWORD>(size), &written, nullptr);
    return ok && written > 0 ? static_cast<ptrdiff_t>(written) : -1;
  }

  LineStatus ModemLines(unsigned* lines) override {
    DWORD bits = 0;
    if (::GetCommModemStatus(handle_, &bits)) {
      *lines = ModemLinesOf(bits, {MS_CTS_ON, MS_DSR_ON, MS_RLSD_ON, MS_RING_ON});
      return LineStatus::kKnown;
    }
    // A pseudo-terminal under Wine has no modem-status lines, and says so.
    return ::GetLastError() == ERROR_NOT_SUPPORTED ? LineStatus::kNoLines : LineStatus::kFailed;
  }

  // Not every device has the lines (a pseudo-terminal under Wine refuses): that changes nothing.
  void SetLine(ControlLine line, bool high) override {
    const bool dtr = line == ControlLine::kDtr;
    ::EscapeCommFunction(handle_, dtr ? (high ? SETDTR : CLRDTR) : (high ? SETRTS : CLRRTS));
  }

  void PurgeInput() override { ::PurgeComm(handle_, PURGE_RXCLEAR); }

  size_t QueuedOutput() const override {
    DWORD errors = 0;
    COMSTAT status{};
    return ::ClearCommError(handle_, &errors, &status) ? status.cbOutQue : 0;
  }

  int DeviceWaitLimitMs(bool) const override { return kLookIntervalMs; }

  Runtime& runtime_;
  Win32DevicePath device_for_port_;
  HANDLE handle_ = INVALID_HANDLE_VALUE;
  HANDLE mutex_ = nullptr;
};

void Win32SerialComm::OpenDevice(int16_t port, bool rts_high) {
  const std::wstring path = device_for_port_ ? device_for_port_(port) : std::wstring();
  if (path.empty()) throw InvalidPort();

  // The mutex comes before the device is even opened: a second run must leave the first run's
  // line exactly as it is. Windows refuses a second open of a COM port by itself, but Wine
  // does not, and neither keeps out an opener of the same device under another path.
  HandleGuard mutex(::CreateMutexW(nullptr, TRUE, PortMutexName(path).c_str()), nullptr);
  if (mutex.get() == nullptr) {
    const DWORD error = ::GetLastError();
    if (error == ERROR_ACCESS_DENIED) {
      throw PortAlreadyOpen().WithCause(Cause::kBusy, path, L"in use by a run of another user");
    }
    throw InvalidPort().WithCause(Cause::kOther, path, SystemErrorText(static_cast<int>(error)));
  }
  if (::GetLastError() == ERROR_ALREADY_EXISTS) {
    throw PortAlreadyOpen().WithCause(Cause::kBusy, path, L"in use by another run");
  }

  // Share mode 0: nobody else may open the device while we hold it.
  HandleGuard device(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                   OPEN_EXISTING, 0, nullptr),
                     INVALID_HANDLE_VALUE);
  if (device.get() == INVALID_HANDLE_VALUE) {
    const DWORD error = ::GetLastError();
    const Cause cause = OpenCause(error, path);
    throw(cause == Cause::kBusy ? PortAlreadyOpen() : InvalidPort())
        .WithCause(cause, path, SystemErrorText(static_cast<int>(error)));
  }
  // A plain file or a pipe has no comm state: it is no port.
  DCB line{};
  line.DCBlength = sizeof line;
  if (!::GetCommState(device.get(), &line)) {
    const int error = static_cast<int>(::GetLastError());
    throw InvalidPort().WithCause(Cause::kNotAPort, path, SystemErrorText(error));
  }
  line.BaudRate = CBR_9600;
  line.ByteSize = 8;
  line.Parity = NOPARITY;
  line.StopBits = ONESTOPBIT;
  line.fBinary = TRUE;
  line.fParity = FALSE;
  line.fOutxCtsFlow = FALSE;
  line.fOutxDsrFlow = FALSE;
  // DTR high while open: a modem listens only then, and hangs up when it drops.
  line.fDtrControl = DTR_CONTROL_ENABLE;
  line.fDsrSensitivity = FALSE;
  line.fOutX = FALSE;
  line.fInX = FALSE;
  line.fErrorChar = FALSE;
  line.fNull = FALSE;
  line.fRtsControl = rts_high ? RTS_CONTROL_ENABLE : RTS_CONTROL_DISABLE;
  line.fAbortOnError = FALSE;
  if (!::SetCommState(device.get(), &line)) {
    const int error = static_cast<int>(::GetLastError());
    throw SetStateFailed().WithCause(Cause::kOther, path, SystemErrorText(error));
  }
  // Reads hand over at once what is there (the waiting is done by looking a few times a
  // second); a write that the device doesn't take within seconds fails instead of hanging.
  COMMTIMEOUTS timeouts{};
  timeouts.ReadIntervalTimeout = MAXDWORD;
  timeouts.ReadTotalTimeoutMultiplier = 0;
  timeouts.ReadTotalTimeoutConstant = 0;
  timeouts.WriteTotalTimeoutMultiplier = 2;
  timeouts.WriteTotalTimeoutConstant = 2000;
  if (!::SetCommTimeouts(device.get(), &timeouts)) {
    const int error = static_cast<int>(::GetLastError());
    throw SetStateFailed().WithCause(Cause::kOther, path, SystemErrorText(error));
  }
  // Some drivers leave DTR as the last closer left it; raise it by hand as well. A device
  // without the line refuses, which changes nothing.
  ::EscapeCommFunction(device.get(), SETDTR);
  // Whatever waits in the driver from before this run belongs to nobody.
  ::PurgeComm(device.get(), PURGE_RXABORT | PURGE_RXCLEAR | PURGE_TXABORT | PURGE_TXCLEAR);

  handle_ = device.release();
  SetPortForForcedEnd(handle_);
  mutex_ = mutex.release();
  runtime_.AddSource(this);
}

void Win32SerialComm::CloseDevice() noexcept {
  runtime_.RemoveSource(this);
  if (!failed()) {
    // Drops DTR so that the modem hangs up, by both ways that drivers understand; a device
    // without the line refuses both, which is fine.
    DCB line{};
    line.DCBlength = sizeof line;
    if (::GetCommState(handle_, &line)) {
      line.fDtrControl = DTR_CONTROL_DISABLE;
      ::SetCommState(handle_, &line);
    }
    SetLine(ControlLine::kDtr, false);
  }
  SetPortForForcedEnd(nullptr);
  ::CloseHandle(handle_);
  handle_ = INVALID_HANDLE_VALUE;
  ::ReleaseMutex(mutex_);
  ::CloseHandle(mutex_);
  mutex_ = nullptr;
}

bool Win32SerialComm::ReadAvailable(std::string* into) {
  for (;;) {
    DWORD errors = 0;
    COMSTAT status{};
    // A device that was pulled out answers with an error here: that ends the line.
    if (!::ClearCommError(handle_, &errors, &status)) return false;
    if (status.cbInQue == 0) return true;
    char buffer[4096];
    const DWORD want = status.cbInQue < sizeof buffer ? status.cbInQue : sizeof buffer;
    DWORD got = 0;
    if (!::ReadFile(handle_, buffer, want, &got, nullptr)) return false;
    if (got == 0) return true;
    into->append(buffer, got);
  }
}

}  // namespace

std::unique_ptr<SerialComm> NewWin32SerialComm(Runtime& runtime, Win32DevicePath device_for_port) {
  return std::make_unique<Win32SerialComm>(runtime, std::move(device_for_port));
}

}  // namespace kw
