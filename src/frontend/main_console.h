#ifndef KW_FRONTEND_MAIN_CONSOLE_H_
#define KW_FRONTEND_MAIN_CONSOLE_H_

#include <string>

namespace kw {

/// Set by /LE: the error line also goes to the event log.
extern bool g_log_errors;
/// Set by /LS: the success line also goes to the event log.
extern bool g_log_success;

class IniFile;

/// One run: reads the command line, loads the settings from the configuration file, sends, and
/// reports in one line.
void Main(IniFile& config);

/// Applies one option argument ("/LE", "/LS", "/?", "/DEBUG" in any case); others do nothing.
void ParseOption(std::wstring argument);

/// Writes the short or the extended usage, unless a usage text was written already.
void ShowUsage(bool extended);

/// The process's entry: guards the standard streams, arms the handlers of requests to stop,
/// sets the locale, installs the operating system's runtime, runs Main with kestrawind.ini beside
/// the executable.
int RunProgram();

}  // namespace kw

#endif  // KW_FRONTEND_MAIN_CONSOLE_H_
