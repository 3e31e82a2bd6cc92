#include "os/interrupt.h"

#include <atomic>

#include "base/error_numbers.h"

namespace kw {
namespace {

// The one piece of state that a signal handler (or a console handler's thread) shares with the
// run: the cause of the first request to stop, null while none has come. A lock-free atomic is
// all that such a handler may touch.
std::atomic<const wchar_t*> g_cause{nullptr};
static_assert(std::atomic<const wchar_t*>::is_always_lock_free, "a handler must not take a lock");

}  // namespace

bool NoteInterruptRequest(const wchar_t* cause) {
  const wchar_t* none = nullptr;
  return g_cause.compare_exchange_strong(none, cause);
}

void ForgetInterruptRequest() { g_cause.store(nullptr); }

bool StopRequested() { return g_cause.load() != nullptr; }

void RaiseIfInterrupted() {
  if (const wchar_t* cause = g_cause.load()) throw InterruptionError(cause);
}

Error InterruptionError(const std::wstring& cause) {
  // Before the confirmation a message may or may not have reached the centre; after it the
  // run reports success and is no longer interrupted by anything.
  // Its number lies outside the program's own range, so the interruption takes the second error
  // form, "[Unhandled][n]", beside the other failures that carry the program's name as source.
  return Error(kInterrupted, kProgramSource,
               L"Interrupted by " + cause + L" before the send was confirmed");
}

}  // namespace kw
