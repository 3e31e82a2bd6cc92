#include "link/modem.h"

#include "base/error.h"
#include "base/int16.h"
#include "base/string_util.h"
#include "link/communication.h"
#include "log/logging.h"
#include "os/runtime.h"

namespace kw {
namespace {

/// Seconds that the carrier may take to come up after "CONNECT".
constexpr int64_t kCarrierWaitSeconds = 30;

/// What Comm_OnComm writes for each event that only gets logged.
const wchar_t* EventLine(int16_t event) {
  switch (event) {
    case 3: return L"Comm Event: Change in Clear To Send line.";
    case 4: return L"Comm Event: Change in Data Set Ready line.";
    case 5: return L"Comm Event: Change in carrier detect line.";
    case 6: return L"Comm Event: Ring detected.";
    case 7: return L"Comm Event: End Of File character received.";
    case 1001: return L"Comm Error: A break signal was received.";
    case 1007: return L"Comm Error: Carrier detect timeout.";
    case 1002: return L"Comm Error: Clear To Send Timeout.";
    case 1011: return L"Comm Error: Unexpected error retrieving device control block for the port.";
    case 1003: return L"Comm Error: Data Set Ready Timeout.";
    case 1004: return L"Comm Error: Framing error.";
    case 1006: return L"Comm Error: Port overrun.";
    case 1008: return L"Comm Error: Receive buffer overflow.";
    case 1009: return L"Comm Error: Parity error.";
    case 1010: return L"Comm Error: Transmit buffer full.";
    default: return nullptr;
  }
}

}  // namespace

modem::~modem() {
  try {
    if (comm && comm->PortOpen()) comm->SetPortOpen(false);
  } catch (...) {
  }
}

void modem::Initialize(const std::wstring& Port) {
  if (!comm) {
    comm = CurrentRuntime().NewSerialComm();
    comm->OnComm = [this] { Comm_OnComm(); };
    comm->OnNotice = [](const std::wstring& text) { LogDebug(text); };
  }
  comm->SetCommPort(ToInt16(Port));
  comm->SetRThreshold(1);
  comm->SetSThreshold(1);
  comm->SetRTSEnable(true);
}

void modem::DialSmsCenter(const std::wstring& SmsCenterNumber) {
  const std::wstring dialString = L"ATDT" + TrimBlanks(SmsCenterNumber) + L"\r";

  if (comm->PortOpen()) comm->SetPortOpen(false);
  try {
    comm->SetPortOpen(true);
  } catch (const Error&) {
    throw AppError(520,
                   L"Error opening com port. Make sure no other application is using this port.");
  }

  // Both steps run even when the first fails; the last failure is the one reported.
  bool failed = false;
  try {
    comm->SetInBufferCount(0);
  } catch (const Error& e) {
    failed = true;
    pendingErrorNumber = e.number();
    pendingErrorDescription = e.description();
  }
  try {
    SendData(dialString);
  } catch (const Error& e) {
    failed = true;
    pendingErrorNumber = e.number();
    pendingErrorDescription = e.description();
  }
  if (failed) {
    throw AppError(521, L"Dialing Error (" + std::to_wstring(pendingErrorNumber) + L"-" +
                            pendingErrorDescription + L")");
  }

  Runtime& runtime = CurrentRuntime();
  const int64_t dialStart = runtime.NowSeconds();
  for (;;) {
    runtime.DoEvents();
    if (pendingErrorNumber != 0) {
      throw Error(pendingErrorNumber, pendingErrorSource, pendingErrorDescription);
    }
    if (IsConnected) break;
    if (runtime.NowSeconds() - dialStart > ConnectionTimeout) {
      IsConnected = false;
      throw AppError(523, L"Connection timed out. No response from Modem.");
    }
    // Sleeps until the modem says something or the next whole second: the wait never spins.
    runtime.WaitForEvent();
  }

  // The carrier wait delivers nothing: bytes that come now wait for the next wait.
  const int64_t carrierStart = runtime.NowSeconds();
  while (!comm->CDHolding() && runtime.NowSeconds() - carrierStart <= kCarrierWaitSeconds) {
    runtime.Sleep(1000);
  }
  if (comm->CDHolding()) {
    IsConnected = true;
    LogDebug(L"Provider successfully connected.");
  } else {
    IsConnected = false;
    LogDebug(L"Unable to connect to provider.");
  }
}

void modem::SendData(const std::wstring& msg) {
  LogDebug(L"Sending : " + ShowControlChars(msg));
  comm->SetOutput(msg);
}

void modem::ScanCom(const std::wstring& Instring) {
  for (wchar_t c : Instring) {
    if (c == L'\r') {
      MessageHandler(TrimBlanks(lineBuffer));
      lineBuffer.clear();
    } else if (c != L'\n') {
      lineBuffer.push_back(c);
    }
  }
}

void modem::MessageHandler(const std::wstring& InBuff) {
  auto holds = [&InBuff](const wchar_t* word) { return InBuff.find(word) != std::wstring::npos; };
  try {
    if (holds(L"RING")) return;
    if (holds(L"CONNECT")) {
      IsConnected = true;
      return;
    }
    if (holds(L"NO CARRIER")) {
      HangUpDetected = true;
      throw AppError(524,
                     L"There is no carrier.  Please make sure that all your cables are properly "
                     L"connected.");
    }
    // The received line itself is the detail that tells the user what the modem refused.
    if (holds(L"ERROR")) throw AppError(525, L"An Input Error occurred. (" + InBuff + L")");
    if (holds(L"BUSY")) throw AppError(526, L"The number is busy. Please try again later.");
    if (holds(L"NO DIAL")) {
      throw AppError(526,
                     L"There is no dial tone.  Please make sure that all your cables are properly "
                     L"connected.");
    }
  } catch (const Error& e) {
    pendingErrorNumber = e.number();
    pendingErrorDescription = e.description();
    pendingErrorSource = e.source();
  }
}

void modem::HangUp() {
  SendData(L"ATH");
  IsConnected = false;
}

void modem::ClearInBuffer() { comm->Input(); }

void modem::Comm_OnComm() {
  const int16_t event = comm->CommEvent();
  if (event == kCommEvReceive) {
    LogDebug(L"Comm Event: Receiving data");
    const std::wstring text = comm->Input();
    LogDebug(L"Received : " + ShowControlChars(text));
    recvBuffer += text;
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
