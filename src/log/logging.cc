#include "log/logging.h"

#include "log/console.h"
#include "os/output_budget.h"
#include "os/platform.h"
#include "os/runtime.h"

namespace kw {

bool g_debug_mode = false;

void LogDebug(const std::wstring& text) {
  if (!g_debug_mode) return;
  const std::wstring now = CurrentRuntime().NowText();
  // Said where the trace goes on after a gap, once per gap; a note that is lost itself comes
  // again with the next line.
  if (RunOutputBudget().TakeDropped()) {
    ConsoleWriteLine(now +
                     L"\tOutput was dropped: standard output or the system log took it "
                     L"too slowly.");
  }
  ConsoleWriteLine(now + L"\t" + text);
}

void LogEvent(const std::wstring& text, int event_type, int event_id) {
  WriteEventLog(text, event_type, event_id);
}

}  // namespace kw
