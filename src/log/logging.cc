#include "log/logging.h"

#include "log/console.h"
#include "os/platform.h"
#include "os/runtime.h"

namespace kw {

bool g_debug_mode = false;

void LogDebug(const std::wstring& text) {
  if (g_debug_mode) ConsoleWriteLine(CurrentRuntime().NowText() + L"\t" + text);
}

void LogEvent(const std::wstring& text, int event_type, int event_id) {
  WriteEventLog(text, event_type, event_id);
}

}  // namespace kw
