#include "os/interrupt-win32.h"

#include <windows.h>

#include <atomic>

#include "os/interrupt.h"

namespace kw {
namespace {

// The open port, for a second request to stop; null while none is open.
std::atomic<void*> g_port{nullptr};

// How long the handler of a closing console keeps the process alive for the run to end by
// itself: Windows ends the process when the handler returns, and gives it about five seconds.
constexpr DWORD kCloseGraceMs = 4500;

/// The name of a console control event in the error line.
const wchar_t* CauseOf(DWORD event) {
  switch (event) {
    case CTRL_C_EVENT:
      return L"Ctrl+C";
    case CTRL_BREAK_EVENT:
      return L"Ctrl+Break";
    case CTRL_CLOSE_EVENT:
      return L"closing the console";
    case CTRL_LOGOFF_EVENT:
      return L"the user logging off";
    default:
      return L"the system shutting down";
  }
}

// Runs on a thread of its own that Windows starts for the event, beside the run's one thread.
BOOL WINAPI OnConsoleControl(DWORD event) {
  if (!NoteInterruptRequest(CauseOf(event))) {
    // A second request: end now, with DTR dropped so that the modem hangs up.
    if (void* port = g_port.load()) ::EscapeCommFunction(port, CLRDTR);
    ::TerminateProcess(::GetCurrentProcess(), 1);
  }
  // Ctrl+C and Ctrl+Break let the process live on; for the others Windows ends it as soon as
  // this returns, so wait here while the run hangs up and writes its line. The run's own end
  // ends the process, and this thread with it.
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) ::Sleep(kCloseGraceMs);
  return TRUE;
}

}  // namespace

void SetPortForForcedEnd(void* handle) { g_port.store(handle); }

void ArmInterruptHandlers() { ::SetConsoleCtrlHandler(OnConsoleControl, TRUE); }

}  // namespace kw
