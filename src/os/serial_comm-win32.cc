#include "os/serial_comm-win32.h"

#include <cwctype>
#include <utility>

#include "base/error.h"
#include "base/text.h"
#include "os/comm_events.h"
#include "os/interrupt-win32.h"
#include "os/serial_errors.h"

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

}  // namespace

Win32SerialComm::Win32SerialComm(Runtime& runtime, DevicePath device_for_port)
    : runtime_(runtime), device_for_port_(std::move(device_for_port)) {}

Win32SerialComm::~Win32SerialComm() { Close(); }

void Win32SerialComm::SetCommPort(int16_t port) {
  if (PortOpen()) throw PortAlreadyOpen();
  port_ = port;
}

void Win32SerialComm::SetRTSEnable(bool enable) {
  rts_enable_ = enable;
  // Not every device has the line (a pseudo-terminal under Wine refuses): that changes nothing.
  if (PortOpen() && !failed_) ::EscapeCommFunction(handle_, enable ? SETRTS : CLRRTS);
}

void Win32SerialComm::SetPortOpen(bool open) {
  if (open) {
    Open();
  } else {
    Close();
  }
}

void Win32SerialComm::Open() {
  if (PortOpen()) throw PortAlreadyOpen();
  if (port_ < 1) throw InvalidPort();
  const std::wstring path = device_for_port_ ? device_for_port_(port_) : std::wstring();
  if (path.empty()) throw InvalidPort();

  // The mutex comes before the device is even opened: a second run must leave the first run's
  // line exactly as it is. Windows refuses a second open of a COM port by itself, but Wine
  // does not, and neither keeps out an opener of the same device under another path.
  HandleGuard mutex(::CreateMutexW(nullptr, TRUE, PortMutexName(path).c_str()), nullptr);
  if (mutex.get() == nullptr) {
    if (::GetLastError() == ERROR_ACCESS_DENIED) throw PortAlreadyOpen();  // held by another user
    throw InvalidPort();
  }
  if (::GetLastError() == ERROR_ALREADY_EXISTS) throw PortAlreadyOpen();

  // Share mode 0: nobody else may open the device while we hold it.
  HandleGuard port(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                 OPEN_EXISTING, 0, nullptr),
                   INVALID_HANDLE_VALUE);
  if (port.get() == INVALID_HANDLE_VALUE) {
    const DWORD error = ::GetLastError();
    if (error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION) throw PortAlreadyOpen();
    throw InvalidPort();
  }
  // A plain file or a pipe has no comm state: it is no port.
  DCB line{};
  line.DCBlength = sizeof line;
  if (!::GetCommState(port.get(), &line)) throw InvalidPort();
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
  line.fRtsControl = rts_enable_ ? RTS_CONTROL_ENABLE : RTS_CONTROL_DISABLE;
  line.fAbortOnError = FALSE;
  if (!::SetCommState(port.get(), &line)) throw SetStateFailed();
  // Reads hand over at once what is there (the waiting is done by looking a few times a
  // second); a write that the device doesn't take within seconds fails instead of hanging.
  COMMTIMEOUTS timeouts{};
  timeouts.ReadIntervalTimeout = MAXDWORD;
  timeouts.ReadTotalTimeoutMultiplier = 0;
  timeouts.ReadTotalTimeoutConstant = 0;
  timeouts.WriteTotalTimeoutMultiplier = 2;
  timeouts.WriteTotalTimeoutConstant = 2000;
  if (!::SetCommTimeouts(port.get(), &timeouts)) throw SetStateFailed();
  // Some drivers leave DTR as the last closer left it; raise it by hand as well. A device
  // without the line refuses, which changes nothing.
  ::EscapeCommFunction(port.get(), SETDTR);
  // Whatever waits in the driver from before this run belongs to nobody.
  ::PurgeComm(port.get(), PURGE_RXABORT | PURGE_RXCLEAR | PURGE_TXABORT | PURGE_TXCLEAR);

  handle_ = port.release();
  SetPortForForcedEnd(handle_);
  mutex_ = mutex.release();
  ++generation_;
  failed_ = false;
  carried_ = false;
  in_queue_.clear();
  input_unsignaled_ = false;
  notice_unread_ = false;
  send_armed_ = false;
  comm_event_ = 0;
  DWORD bits = 0;
  has_modem_lines_ = ModemStatus(&bits);
  last_modem_bits_ = has_modem_lines_ ? bits : 0;
  runtime_.AddSource(this);
}

void Win32SerialComm::Close() noexcept {
  if (!PortOpen()) return;
  runtime_.RemoveSource(this);
  if (!failed_) {
    // Drops DTR so that the modem hangs up, by both ways that drivers understand; a device
    // without the line refuses both, which is fine.
    DCB line{};
    line.DCBlength = sizeof line;
    if (::GetCommState(handle_, &line)) {
      line.fDtrControl = DTR_CONTROL_DISABLE;
      ::SetCommState(handle_, &line);
    }
    ::EscapeCommFunction(handle_, CLRDTR);
  }
  SetPortForForcedEnd(nullptr);
  ::CloseHandle(handle_);
  handle_ = INVALID_HANDLE_VALUE;
  ::ReleaseMutex(mutex_);
  ::CloseHandle(mutex_);
  mutex_ = nullptr;
  ++generation_;
  failed_ = false;
  has_modem_lines_ = false;
  in_queue_.clear();
  input_unsignaled_ = false;
  notice_unread_ = false;
  send_armed_ = false;
}

void Win32SerialComm::SetInBufferCount(int16_t count) {
  if (!PortOpen()) throw PortNotOpen();
  if (count != 0) return;
  if (!failed_) ::PurgeComm(handle_, PURGE_RXCLEAR);
  in_queue_.clear();
  input_unsignaled_ = false;
  // After the device is gone nothing else will come; the notice must still reach the link.
  if (notice_unread_) in_queue_ = kLostLineNotice;
}

void Win32SerialComm::SetOutput(const std::wstring& text) {
  if (!PortOpen()) throw PortNotOpen();
  // The line is gone: dropping the bytes is all there is to do, and raising here would bury
  // the lost line that the link is about to report.
  if (failed_) return;
  const std::string bytes = ToLine(text);
  send_armed_ = true;
  size_t done = 0;
  while (done < bytes.size()) {
    DWORD written = 0;
    if (!::WriteFile(handle_, bytes.data() + done, static_cast<DWORD>(bytes.size() - done),
                     &written, nullptr) ||
        written == 0) {
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
    done += written;
    carried_ = true;
  }
}

int16_t Win32SerialComm::OutBufferCount() {
  if (!PortOpen() || failed_) return 0;
  DWORD errors = 0;
  COMSTAT status{};
  if (!::ClearCommError(handle_, &errors, &status)) return 0;
  return static_cast<int16_t>(status.cbOutQue > 32767 ? 32767 : status.cbOutQue);
}

std::wstring Win32SerialComm::Input() {
  if (!PortOpen()) throw PortNotOpen();
  if (!failed_) ReadAvailable();
  std::wstring text = FromLine(in_queue_);
  in_queue_.clear();
  input_unsignaled_ = false;
  notice_unread_ = false;
  return text;
}

bool Win32SerialComm::ModemStatus(DWORD* bits) {
  if (::GetCommModemStatus(handle_, bits)) return true;
  *bits = 0;
  return false;
}

bool Win32SerialComm::CDHolding() {
  if (!PortOpen() || failed_) return false;
  DWORD bits = 0;
  if (ModemStatus(&bits)) return (bits & MS_RLSD_ON) != 0;
  // A device without modem-status lines (a pseudo-terminal under Wine) has no carrier to lose:
  // the line counts as up, as on the other side.
  return ::GetLastError() == ERROR_NOT_SUPPORTED;
}

void Win32SerialComm::ReadAvailable() {
  for (;;) {
    DWORD errors = 0;
    COMSTAT status{};
    // A device that was pulled out answers with an error here: that ends the line.
    if (!::ClearCommError(handle_, &errors, &status)) {
      Fail();
      return;
    }
    if (status.cbInQue == 0) return;
    char buffer[4096];
    const DWORD want = status.cbInQue < sizeof buffer ? status.cbInQue : sizeof buffer;
    DWORD got = 0;
    if (!::ReadFile(handle_, buffer, want, &got, nullptr)) {
      Fail();
      return;
    }
    if (got == 0) return;
    in_queue_.append(buffer, got);
    input_unsignaled_ = true;
  }
}

void Win32SerialComm::Fail(bool lost_line) {
  if (failed_) return;
  failed_ = true;
  if (!lost_line) return;
  in_queue_ += kLostLineNotice;
  input_unsignaled_ = true;
  notice_unread_ = true;
}

bool Win32SerialComm::Raise(int16_t event, uint64_t generation) {
  CallOnComm(OnComm, comm_event_, event);
  return PortOpen() && generation_ == generation;
}

void Win32SerialComm::DeliverPending() {
  if (!PortOpen()) return;
  const uint64_t generation = generation_;
  // Each event's cause is cleared before its handler runs, so that a handler which delivers
  // events again (nested) sees only what is new and is not called again for the same thing.
  if (!failed_) ReadAvailable();
  if (rthreshold_ > 0 && input_unsignaled_ && !in_queue_.empty() &&
      (in_queue_.size() >= static_cast<size_t>(rthreshold_) || failed_)) {
    input_unsignaled_ = false;
    if (!Raise(kCommEvReceive, generation)) return;
  }

  if (send_armed_ && sthreshold_ > 0 && OutBufferCount() < sthreshold_) {
    send_armed_ = false;
    if (!Raise(kCommEvSend, generation)) return;
  }

  if (!has_modem_lines_ || failed_) return;
  DWORD bits = 0;
  if (!ModemStatus(&bits)) return;
  const DWORD before = std::exchange(last_modem_bits_, bits);
  RaiseLineChanges(before, bits, {MS_CTS_ON, MS_DSR_ON, MS_RLSD_ON, MS_RING_ON},
                   [&](int16_t event) { return Raise(event, generation); });
}

int Win32SerialComm::WaitLimitMs() const {
  // Nothing wakes a wait when bytes arrive, so the port wants to be looked at again soon.
  return PortOpen() && !failed_ ? kLookIntervalMs : -1;
}

}  // namespace kw
