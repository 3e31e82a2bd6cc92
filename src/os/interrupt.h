#ifndef KW_OS_INTERRUPT_H_
#define KW_OS_INTERRUPT_H_

#include <string>

#include "base/error.h"

namespace kw {

/// Arms the handlers of the requests to stop a run: the first is recorded for the next wait to
/// raise, a second ends the process at once.
void ArmInterruptHandlers();
/// Raises the interruption error if a request to stop has come; every wait of the runtime calls it.
void RaiseIfInterrupted();
/// Whether a request to stop has come; output stops waiting for slow readers then.
bool StopRequested();

/// Records a request to stop, named by its cause (a static text such as L"SIGTERM"); gives true
/// for the first one. What the platform's handlers call, and what a test calls in their place.
/// Safe inside a signal handler and from another thread: it is one atomic exchange.
bool NoteInterruptRequest(const wchar_t* cause);
/// Forgets a recorded request, so that a test leaves none behind.
void ForgetInterruptRequest();
/// The error that ends an interrupted run, in the second form, naming the cause.
Error InterruptionError(const std::wstring& cause);

}  // namespace kw

#endif  // KW_OS_INTERRUPT_H_
