#ifndef KW_LOG_LOGGING_H_
#define KW_LOG_LOGGING_H_

#include <string>

namespace kw {

/// Set by /DEBUG: debug lines are written only while it is true.
extern bool g_debug_mode;

/// Writes a debug line (date and time, a tab, the text) under /DEBUG; does nothing otherwise.
void LogDebug(const std::wstring& text);

/// Records the text in the system's event log; event_type 1 is error, 4 is information. The
/// event ID is one of log/event_id.h.
void LogEvent(const std::wstring& text, int event_type, int event_id);

}  // namespace kw

#endif  // KW_LOG_LOGGING_H_
