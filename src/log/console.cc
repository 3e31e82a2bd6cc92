#include "log/console.h"

#include "base/text.h"
#include "os/platform.h"

namespace kw {

bool InitConsole() {
  // Standard output is a plain descriptor here: nothing to fetch, and nothing else is used.
  return true;
}

bool ConsoleWrite(const std::wstring& text) { return WriteStandardOutput(ToLocale(text)); }

bool ConsoleWriteLine(const std::wstring& text) { return ConsoleWrite(text + L"\r\n"); }

}  // namespace kw
