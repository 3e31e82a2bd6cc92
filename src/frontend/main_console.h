#ifndef KW_FRONTEND_MAIN_CONSOLE_H_
#define KW_FRONTEND_MAIN_CONSOLE_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/error.h"

namespace kw {

/// Set by /LE: the error line also goes to the event log.
extern bool g_log_errors;
/// Set by /LS: the success line also goes to the event log.
extern bool g_log_success;

class IniFile;

/// One run: reads the command line, loads the settings from the configuration file, sends, and
/// reports in one line.
void Main(IniFile& config);

/// What the arguments of a run ask for.
struct Request {
  /// The first argument that is no option, blanks trimmed; empty for none.
  std::wstring recipient;
  /// The arguments behind it, joined by single blanks.
  std::wstring text;
  /// Whether any argument stands behind the recipient, even an empty one.
  bool has_text = false;
};

/// Applies the options among the arguments (ParseOption) and collects the recipient and the text.
Request ReadArguments(const std::vector<std::wstring>& arguments);

/// Loads the settings from the configuration file and sends the request's text, opening a port
/// that another holds once it is free within port_wait_seconds; writes the success line.
void Deliver(IniFile& config, const Request& request, int32_t port_wait_seconds);

/// Runs the step; gives the error that it raised, a failure of another kind turned into the
/// error that Main reports for it, or nothing when it ended normally.
std::optional<Error> Attempt(const std::function<void()>& step);

/// Writes what Main writes for a failure: under /DEBUG the line of its cause, the error line, and
/// under /LE the event-log record.
void ReportFailure(const Error& error);

/// Applies one option argument ("/LE", "/LS", "/?", "/DEBUG" in any case); others do nothing.
void ParseOption(std::wstring argument);

/// Writes the short or the extended usage, unless a usage text was written already.
void ShowUsage(bool extended);

/// The start that both programs share: no core, guarded standard streams, the handlers of
/// requests to stop, and the parts of the locale that the program uses.
void StartProcess();

/// The process's entry: guards the standard streams, arms the handlers of requests to stop,
/// sets the locale, installs the operating system's runtime, runs Main with kestrawind.ini beside
/// the executable.
int RunProgram();

}  // namespace kw

#endif  // KW_FRONTEND_MAIN_CONSOLE_H_
