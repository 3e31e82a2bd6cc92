#include "frontend/main_console.h"

#include <clocale>
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

void Main(const std::wstring& config_file) {
  // Released in this order when Main returns: message, arguments, sender, settings.
  std::shared_ptr<SmsSettings> settings;
  std::unique_ptr<SmsSender> sender;
  std::vector<std::wstring> arguments;
  std::unique_ptr<SmsMessage> message;
  std::wstring recipient;
  std::wstring text;

  try {
    try {
      InitConsole();
      g_log_errors = false;
      g_log_success = false;
      g_debug_mode = false;

      arguments = SplitCommandLine(RawCommandLine());
      for (const std::wstring& argument : arguments) {
        if (StartsWith(argument, L"/", true)) {
          ParseOption(argument);
          continue;
        }
        const std::wstring stripped = StripChar(argument, L"\"");
        if (recipient.empty()) {
          recipient = TrimBlanks(stripped);
        } else if (text.empty()) {
          text = stripped;
        } else {
          text += L" " + stripped;
        }
      }
      if (recipient.empty()) {
        ShowUsage(false);
        return;
      }
      LogDebug(L"Sms Number : " + recipient);
      LogDebug(L"Sms Message : " + text);

      if (!PlainFileExists(config_file)) {
        throw AppError(kConfigFileMissing, L"Configuration file not found.");
      }
      settings = std::make_shared<SmsSettings>();
      settings->config_file = config_file;
      settings->Load();
      settings->Validate();

      sender = std::make_unique<SmsSender>();
      sender->settings = settings;
      message = std::make_unique<SmsMessage>();
      message->recipient = recipient;
      message->message = text;
      // A request to stop that came while the run started up ends it before the port is touched.
      RaiseIfInterrupted();
      sender->SendSms(*message);

      const std::wstring success =
          L"Successfully sent message <" + text + L"> to recipient <" + recipient + L">";
      if (g_log_success) LogEvent(success, 4, kSentEventId);
      ConsoleWriteLine(success);
    } catch (const std::bad_alloc&) {
      throw Error(kOutOfMemory, kProgramSource, L"Out of memory");
    } catch (const Error&) {
      throw;
    } catch (const std::exception& failure) {
      throw Error(kInternalError, kProgramSource, L"Internal error: " + FromLocale(failure.what()));
    }
  } catch (const Error& error) {
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
}

int RunProgram() {
  // Before anything opens a file; a signal that comes before this point finds nothing to undo.
  GuardStandardStreams();
  ArmInterruptHandlers();
  std::setlocale(LC_ALL, "");
  const std::wstring config_file = ExecutableFolder() + kPathSeparator + L"kestrawind.ini";
  // The optional section "Ports" of the configuration file names the device of a port number;
  // it stands in for the platform's own names of serial ports.
  std::unique_ptr<Runtime> runtime = NewSystemRuntime([config_file](int16_t port) {
    return IniGet(config_file, L"Ports", std::to_wstring(port), L"");
  });
  ScopedRuntime installed(*runtime);
  Main(config_file);
  return 0;
}

}  // namespace kw
