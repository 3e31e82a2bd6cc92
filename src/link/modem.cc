#include "link/modem.h"

#include <memory>
#include <utility>

#include "base/error.h"
#include "base/error_numbers.h"
#include "base/int16.h"
#include "base/string_util.h"
#include "link/communication.h"
#include "log/logging.h"
#include "os/net_address.h"
#include "os/runtime.h"

namespace kw {
namespace {

/// Seconds that the carrier may take to come up after "CONNECT".
constexpr int64_t kCarrierWaitSeconds = 30;
/// How often a held port is tried again while the opening waits for it.
constexpr int kPortRetryMs = 250;

/// What OnCommEvent writes for each event that only gets logged.
const wchar_t* EventLine(int16_t event) {
  switch (event) {
    case 3:
      return L"Comm Event: Change in Clear To Send line.";
    case 4:
      return L"Comm Event: Change in Data Set Ready line.";
    case 5:
      return L"Comm Event: Change in carrier detect line.";
    case 6:
      return L"Comm Event: Ring detected.";
    case 7:
      return L"Comm Event: End Of File character received.";
    case 1001:
      return L"Comm Error: A break signal was received.";
    case 1007:
      return L"Comm Error: Carrier detect timeout.";
    case 1002:
      return L"Comm Error: Clear To Send Timeout.";
    case 1011:
      return L"Comm Error: Unexpected error retrieving device control block for the port.";
    case 1003:
      return L"Comm Error: Data Set Ready Timeout.";
    case 1004:
      return L"Comm Error: Framing error.";
    case 1006:
      return L"Comm Error: Port overrun.";
    case 1008:
      return L"Comm Error: Receive buffer overflow.";
    case 1009:
      return L"Comm Error: Parity error.";
    case 1010:
      return L"Comm Error: Transmit buffer full.";
    default:
      return nullptr;
  }
}

/// The 520 line of a direct link that can't be made.
constexpr wchar_t kAddressFailedText[] =
    L"Error connecting to sms center. Make sure SmsCenterAddress is right and no other run is "
    L"using it.";

}  // namespace

Modem::~Modem() {
  try {
    if (comm && comm->PortOpen()) comm->SetPortOpen(false);
  } catch (...) {
  }
}

void Modem::MakeComm(std::unique_ptr<SerialComm> made) {
  comm = std::move(made);
  comm->OnComm = [this] { OnCommEvent(); };
  comm->OnNotice = [](const std::wstring& text) { LogDebug(text); };
}

void Modem::Initialize(const std::wstring& port) {
  if (!comm) MakeComm(CurrentRuntime().NewSerialComm());
  comm->SetCommPort(ToInt16(port));
  comm->SetRThreshold(1);
  comm->SetSThreshold(1);
  comm->SetRTSEnable(true);
}

void Modem::ConnectSmsCenter(const std::wstring& address) {
  direct_ = true;
  NetAddress target;
  const std::wstring why = ParseHostPort(address, &target);
  if (!why.empty()) {
    throw AppError(kCenterAddressFailed, kAddressFailedText)
        .WithCause(Cause::kBadAddress, TrimBlanks(address), why);
  }
  const int64_t limit_ms = connection_timeout > 0 ? int64_t{connection_timeout} * 1000 : 0;
  if (comm && comm->PortOpen()) comm->SetPortOpen(false);
  MakeComm(CurrentRuntime().NewConnectionComm(target, limit_ms));
  comm->SetRThreshold(1);
  comm->SetSThreshold(1);
  try {
    comm->SetPortOpen(true);
  } catch (const Error& e) {
    if (e.number() == kInterrupted) throw;
    if (e.cause() == Cause::kRefused) {
      throw AppError(kCenterRefused, L"The sms center refused the connection or can't be reached.")
          .CausedBy(e);
    }
    if (e.cause() == Cause::kTimedOut) {
      throw AppError(kCenterTimedOut, L"Connection timed out. No response from sms center.")
          .CausedBy(e);
    }
    throw AppError(kCenterAddressFailed, kAddressFailedText).CausedBy(e);
  }
  is_connected = true;
  LogDebug(L"Provider successfully connected.");
}

void Modem::DialSmsCenter(const std::wstring& sms_center_number) {
  const std::wstring dial_string = L"ATDT" + TrimBlanks(sms_center_number) + L"\r";

  if (comm->PortOpen()) comm->SetPortOpen(false);
  OpenPort();

  // Both steps run even when the first fails; the last failure is the one reported.
  bool failed = false;
  try {
    comm->SetInBufferCount(0);
  } catch (const Error& e) {
    failed = true;
    pending_error_number_ = e.number();
    pending_error_description_ = e.description();
  }
  try {
    SendData(dial_string);
  } catch (const Error& e) {
    failed = true;
    pending_error_number_ = e.number();
    pending_error_description_ = e.description();
  }
  if (failed) {
    throw AppError(kDialWriteFailed, L"Dialing Error (" + std::to_wstring(pending_error_number_) +
                                         L"-" + pending_error_description_ + L")");
  }

  Runtime& runtime = CurrentRuntime();
  const int64_t dial_start = runtime.NowSeconds();
  for (;;) {
    runtime.DoEvents();
    if (pending_error_number_ != 0) {
      throw Error(pending_error_number_, pending_error_source_, pending_error_description_);
    }
    if (is_connected) break;
    if (runtime.NowSeconds() - dial_start > connection_timeout) {
      is_connected = false;
      throw AppError(kDialTimedOut, L"Connection timed out. No response from Modem.");
    }
    // Sleeps until the modem says something or the next whole second: the wait never spins.
    runtime.WaitForEvent();
  }

  // The carrier wait delivers nothing: bytes that come now wait for the next wait.
  const int64_t carrier_start = runtime.NowSeconds();
  while (!comm->CDHolding() && runtime.NowSeconds() - carrier_start <= kCarrierWaitSeconds) {
    runtime.Sleep(1000);
  }
  if (comm->CDHolding()) {
    is_connected = true;
    LogDebug(L"Provider successfully connected.");
  } else {
    is_connected = false;
    LogDebug(L"Unable to connect to provider.");
  }
}

void Modem::OpenPort() {
  Runtime& runtime = CurrentRuntime();
  const int64_t start = runtime.NowSeconds();
  for (bool told = false;; told = true) {
    try {
      comm->SetPortOpen(true);
      return;
    } catch (const Error& e) {
      if (e.number() == kInterrupted) throw;  // a request to stop while a network port connects
      // Only a port that another holds frees itself. The wait counts whole seconds of the clock,
      // as the time-outs do: it lasts at least the seconds asked for, and under a second more.
      if (e.cause() != Cause::kBusy || port_wait_seconds <= 0 ||
          runtime.NowSeconds() - start > port_wait_seconds) {
        throw AppError(kPortOpenFailed,
                       L"Error opening com port. Make sure no other application is using this "
                       L"port.")
            .CausedBy(e);
      }
      if (!told) {
        LogDebug(L"Waiting up to " + std::to_wstring(port_wait_seconds) +
                 L" seconds for the port: " + e.CauseText());
      }
    }
    // A request to stop ends this wait as it ends any other.
    runtime.Sleep(kPortRetryMs);
  }
}

void Modem::SendData(const std::wstring& msg) {
  LogDebug(L"Sending : " + ShowControlChars(msg));
  comm->SetOutput(msg);
}

void Modem::ScanCom(const std::wstring& in_string) {
  for (wchar_t c : in_string) {
    if (c == L'\r') {
      MessageHandler(TrimBlanks(line_buffer_));
      line_buffer_.clear();
    } else if (c != L'\n') {
      line_buffer_.push_back(c);
    }
  }
}

void Modem::MessageHandler(const std::wstring& in_buff) {
  auto holds = [&in_buff](const wchar_t* word) { return in_buff.find(word) != std::wstring::npos; };
  try {
    if (holds(L"RING")) return;
    if (holds(L"CONNECT")) {
      is_connected = true;
      return;
    }
    if (holds(L"NO CARRIER")) {
      hang_up_detected = true;
      throw AppError(kNoCarrier,
                     L"There is no carrier.  Please make sure that all your cables are properly "
                     L"connected.");
    }
    // The received line itself is the detail that tells the user what the modem refused.
    if (holds(L"ERROR")) throw AppError(kDialError, L"An Input Error occurred. (" + in_buff + L")");
    if (holds(L"BUSY")) {
      throw AppError(kBusyOrNoDialTone, L"The number is busy. Please try again later.");
    }
    if (holds(L"NO DIAL")) {
      throw AppError(kBusyOrNoDialTone,
                     L"There is no dial tone.  Please make sure that all your cables are properly "
                     L"connected.");
    }
  } catch (const Error& e) {
    pending_error_number_ = e.number();
    pending_error_description_ = e.description();
    pending_error_source_ = e.source();
  }
}

void Modem::HangUp() {
  if (!direct_) SendData(L"ATH");
  is_connected = false;
}

void Modem::ClearInBuffer() { comm->Input(); }

void Modem::OnCommEvent() {
  const int16_t event = comm->CommEvent();
  if (event == kCommEvReceive) {
    LogDebug(L"Comm Event: Receiving data");
    const std::wstring text = comm->Input();
    LogDebug(L"Received : " + ShowControlChars(text));
    recv_buffer += text;
    ScanCom(text);
  } else if (event == kCommEvSend) {
    LogDebug(L"Comm Event: Sending data");
    Runtime& runtime = CurrentRuntime();
    while (comm->OutBufferCount() > 0) {
      runtime.WaitForEvent();
      runtime.DoEvents();
    }
  } else if (const wchar_t* line = EventLine(event)) {
    LogDebug(line);
  } else {
    LogDebug(L"Unhandled Comm Event: " + std::to_wstring(event));
  }
}

}  // namespace kw
