#include "frontend/send_console.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/error.h"
#include "base/error_numbers.h"
#include "base/string_util.h"
#include "base/text.h"
#include "config/ini_access.h"
#include "frontend/command_line.h"
#include "frontend/exit_status.h"
#include "frontend/main_console.h"
#include "frontend/send_options.h"
#include "log/console.h"
#include "os/interrupt.h"
#include "os/platform.h"
#include "os/standard_streams.h"
#include "os/system_runtime.h"

namespace kw {
namespace {

/// Writes one line on standard error, behind the program's name.
void Complain(const std::wstring& text) {
  WriteStandardErrorLine(ToLocale(L"kestrawind-send: " + text));
}

/// The line for standard error that says what failed: the cause (the device or file as the
/// settings name it, with the system's reason) where it is known, else the error's own text.
std::wstring FailureLine(const Error& error, const std::wstring& config_file, int wait_seconds) {
  if (error.cause() == Cause::kBusy && wait_seconds > 0) {
    return error.CauseText() + L", still after waiting " + std::to_wstring(wait_seconds) + L" s";
  }
  if (error.cause() != Cause::kNone) return error.CauseText();
  if (ExitStatusFor(error) == kExitConfiguration) {
    return error.description() + L" (in " + config_file + L")";
  }
  return error.description();
}

/// One run with the options taken out and the runtime installed: the message from the arguments
/// or from standard input, kestrawind's run and lines, and on a failure one line on standard
/// error. Gives the exit status.
int SendWithOptions(const SendOptions& options, IniFile& config) {
  // kestrawind's lines for the failure on standard output, the cause on standard error.
  const auto fail = [&](const Error& error) {
    ReportFailure(error);
    Complain(FailureLine(error, config.path(), options.wait_seconds));
    return ExitStatusFor(error);
  };
  Request request;
  if (auto failure = Attempt([&] { request = ReadArguments(options.arguments); })) {
    return fail(*failure);
  }
  if (request.recipient.empty()) {
    ShowUsage(false);
    Complain(L"no recipient given (see --help)");
    return kExitUsage;
  }
  if (!request.has_text && !StandardInputIsTerminal()) {
    std::string bytes;
    const InputText input = ReadStandardInput(kInputLimit, &bytes)
                                ? TextFromInput(bytes)
                                : InputText{L"", L"standard input can't be read", kExitUsage};
    if (!input.problem.empty()) {
      Complain(input.problem + L"; nothing was sent");
      return input.status;
    }
    request.text = input.text;
  }
  const std::wstring warning = CodePageWarning(request.text);
  if (!warning.empty()) Complain(warning);
  if (auto failure = Attempt([&] { Deliver(config, request, options.wait_seconds); })) {
    return fail(*failure);
  }
  return kExitSent;
}

}  // namespace

int RunSendProgram() {
  StartProcess();  // as kestrawind starts
  InitConsole();
  std::vector<std::wstring> arguments;
  if (const std::optional<Error> failure =
          Attempt([&] { arguments = SplitCommandLine(RawCommandLine()); })) {
    ReportFailure(*failure);  // a command line that is too long, as kestrawind says it
    Complain(FailureLine(*failure, L"", 0));
    return ExitStatusFor(*failure);
  }
  const SendOptions options = ParseSendOptions(arguments);
  if (!options.problem.empty()) {
    Complain(options.problem);
    return kExitUsage;
  }
  if (options.help || options.version) {
    for (const std::wstring& line :
         options.help ? SendHelpLines() : std::vector<std::wstring>{SendVersionLine()}) {
      ConsoleWriteLine(line);
    }
    return kExitSent;
  }
  IniFile config(options.config_file.empty()
                     ? ExecutableFolder() + kPathSeparator + L"kestrawind.ini"
                     : options.config_file);
  // The section "Ports" of the ini names the device of a port number, as for kestrawind.
  std::unique_ptr<Runtime> runtime = NewSystemRuntime(
      [&config](int16_t port) { return config.Get(L"Ports", DecimalText(port), L""); });
  ScopedRuntime installed(*runtime);
  return SendWithOptions(options, config);
}

}  // namespace kw
