#include "log/logging.h"

#include "log/console.h"
#include "os/platform.h"
#include "os/runtime.h"

namespace kw {

bool DebugMode = false;

void LogDebug(const std::wstring& text) {
  if (DebugMode) ConsoleWriteLine(CurrentRuntime().NowText() + L"\t" + text);
}

void LogEvent(const std::wstring& text, int eventType) { WriteEventLog(text, eventType); }

}  // namespace kw
