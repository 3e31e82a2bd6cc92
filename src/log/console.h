#ifndef KW_LOG_CONSOLE_H_
#define KW_LOG_CONSOLE_H_

#include <string>

namespace kw {

/// Gets standard output ready; true when it is there. Called once, first thing in a run.
bool InitConsole();

/// Writes the text to standard output in one write, with no line end.
bool ConsoleWrite(const std::wstring& text);

/// Writes the text and CR LF to standard output in one write.
bool ConsoleWriteLine(const std::wstring& text);

}  // namespace kw

#endif  // KW_LOG_CONSOLE_H_
