#include "frontend/main_console.h"

#include <exception>
#include <memory>
#include <new>
#include <vector>

#include "base/error.h"
#include "base/error_numbers.h"
#include "base/string_util.h"
#include "base/text.h"
#include "config/ini_access.h"
#include "config/sms_settings.h"
#include "frontend/command_line.h"
#include "log/console.h"
#include "log/event_id.h"
#include "log/logging.h"
#include "message/sms_message.h"
#include "os/interrupt.h"
#include "os/platform.h"
#include "os/system_runtime.h"
#include "sending/sms_sender.h"

namespace kw {

// The usage texts, compiled in from their text files.
std::string UsageTextBytes();
std::string ExtendedUsageTextBytes();

bool g_log_errors = false;
bool g_log_success = false;

namespace {

/// Whether a usage text was written in this process.
bool g_usage_shown = false;

/// The line that the handler of Main writes for an error.
std::wstring ErrorLine(const Error& error) {
  const long long n = static_cast<long long>(error.number()) - kErrorBase;
  if (n > 0 && n < 0x10000) {
    return L"Error: [" + std::to_wstring(n) + L"] " + error.description();
  }
  return L"Error: [Unhandled][" + std::to_wstring(error.number()) + L"] " + error.description() +
         L" (in " + error.source() + L")";
}

}  // namespace

void ParseOption(std::wstring argument) {
  argument = ToUpper(TrimBlanks(argument));
  if (argument == L"/LE") {
    g_log_errors = true;
  } else if (argument == L"/LS") {
    g_log_success = true;
  } else if (argument == L"/?") {
    ShowUsage(true);
  } else if (argument == L"/DEBUG") {
    g_debug_mode = true;
  }
}

void ShowUsage(bool extended) {
  if (g_usage_shown) return;
  ConsoleWriteLine(FromLocale(extended ? ExtendedUsageTextBytes() : UsageTextBytes()));
  g_usage_shown = true;
}

Request ReadArguments(const std::vector<std::wstring>& arguments) {
  Request request;
  for (const std::wstring& argument : arguments) {
    if (StartsWith(argument, L"/", true)) {
      ParseOption(argument);
      continue;
    }
    const std::wstring stripped = StripChar(argument, L"\"");
    if (request.recipient.empty()) {
      request.recipient = TrimBlanks(stripped);
    } else if (request.text.empty()) {
      request.text = stripped;
      request.has_text = true;
    } else {
      request.text += L" " + stripped;
    }
  }
  return request;
}

void Deliver(IniFile& config, const Request& request, int32_t port_wait_seconds) {
  // Released in this order when it returns: message, sender, settings.
  LogDebug(L"Sms Number : " + request.recipient);
  LogDebug(L"Sms Message : " + request.text);

  FileProblem missing;
  if (!PlainFileExists(config.path(), &missing)) {
    throw AppError(kConfigFileMissing, L"Configuration file not found.")
        .WithCause(missing.cause, config.path(), missing.reason);
  }
  auto settings = std::make_shared<SmsSettings>();
  settings->Load(config);
  settings->Validate();

  auto sender = std::make_unique<SmsSender>();
  sender->settings = settings;
  sender->Link().port_wait_seconds = port_wait_seconds;
  auto message = std::make_unique<SmsMessage>();
  message->recipient = request.recipient;
  message->message = request.text;
  // A request to stop that came while the run started up ends it before the port is touched.
  RaiseIfInterrupted();
  sender->SendSms(*message);

  const std::wstring success = L"Successfully sent message <" + request.text + L"> to recipient <" +
                               request.recipient + L">";
  if (g_log_success) LogEvent(success, 4, kSentEventId);
  ConsoleWriteLine(success);
}

std::optional<Error> Attempt(const std::function<void()>& step) {
  try {
    step();
    return std::nullopt;
  } catch (const std::bad_alloc&) {
    return Error(kOutOfMemory, kProgramSource, L"Out of memory");
  } catch (const Error& error) {
    return error;
  } catch (const std::exception& failure) {
    return Error(kInternalError, kProgramSource, L"Internal error: " + FromLocale(failure.what()));
  }
}

void ReportFailure(const Error& error) {
  // From here on further errors are ignored: the line goes out regardless.
  if (error.cause() != Cause::kNone) {
    try {
      LogDebug(L"Cause: " + error.CauseText());
    } catch (...) {
    }
  }
  const std::wstring line = ErrorLine(error);
  ConsoleWriteLine(line);
  if (g_log_errors) {
    try {
      LogEvent(line, 1, FailureEventId(error));
    } catch (...) {
    }
  }
}

void Main(IniFile& config) {
  const std::optional<Error> failure = Attempt([&config] {
    InitConsole();
    g_log_errors = false;
    g_log_success = false;
    g_debug_mode = false;
    const Request request = ReadArguments(SplitCommandLine(RawCommandLine()));
    if (request.recipient.empty()) {
      ShowUsage(false);
      return;
    }
    Deliver(config, request, 0);
  });
  if (failure) ReportFailure(*failure);
}

void StartProcess() {
  ProtectProcessMemory();
  // Before anything opens a file; a signal that comes before this point finds nothing to undo.
  GuardStandardStreams();
  ArmInterruptHandlers();
  // The locale is not loaded here: the conversions of text, the date in the debug log and the
  // system's error texts load it when they first need it.
}

int RunProgram() {
  StartProcess();
  IniFile config(ExecutableFolder() + kPathSeparator + L"kestrawind.ini");
  // The optional section "Ports" of the configuration file names the device of a port number;
  // it stands in for the platform's own names of serial ports. Read from the file as the settings
  // read it: the file is read once.
  std::unique_ptr<Runtime> runtime = NewSystemRuntime(
      [&config](int16_t port) { return config.Get(L"Ports", DecimalText(port), L""); });
  ScopedRuntime installed(*runtime);
  Main(config);
  return 0;
}

}  // namespace kw
