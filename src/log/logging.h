#ifndef KW_LOG_LOGGING_H_
#define KW_LOG_LOGGING_H_

#include <string>

namespace kw {

/// Set by /DEBUG: debug lines are written only while it is true.
extern bool DebugMode;

/// Writes a debug line (date and time, a tab, the text) under /DEBUG; does nothing otherwise.
void LogDebug(const std::wstring& text);

/// Records the text in the system's event log; eventType 1 is error, 4 is information.
void LogEvent(const std::wstring& text, int eventType);

}  // namespace kw

#endif  // KW_LOG_LOGGING_H_
