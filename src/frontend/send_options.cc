#include "frontend/send_options.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "base/string_util.h"
#include "base/text.h"
#include "frontend/exit_status.h"

namespace kw {
namespace {

/// How many characters the code-page warning names before it only counts the rest.
constexpr size_t kNamedCharacters = 8;

/// The seconds of a --wait value: up to nine digits; nothing for anything else.
std::optional<int32_t> Seconds(const std::wstring& value) {
  if (value.empty() || value.size() > 9 || DigitsOnly(value) != value) return std::nullopt;
  return static_cast<int32_t>(std::stol(value));
}

/// "U+0414 Д": the code point in at least four hexadecimal digits, then the character.
std::wstring Named(uint32_t code, const std::wstring& character) {
  char hex[16];
  std::snprintf(hex, sizeof hex, "U+%04X ", static_cast<unsigned>(code));
  return FromLine(hex) + character;
}

}  // namespace

SendOptions ParseSendOptions(const std::vector<std::wstring>& arguments) {
  SendOptions options;
  bool ended = false;
  for (size_t i = 0; i < arguments.size() && options.problem.empty(); ++i) {
    // Quoted as the rest of the line is; the quotes go, as they do from every argument.
    const std::wstring option = StripChar(arguments[i], L"\"");
    if (ended || option.compare(0, 2, L"--") != 0) {
      options.arguments.push_back(arguments[i]);
      continue;
    }
    if (option == L"--") {
      ended = true;
      continue;
    }
    const size_t equals = option.find(L'=');
    const std::wstring name = option.substr(0, equals);
    std::optional<std::wstring> value;
    if (equals != std::wstring::npos) value = option.substr(equals + 1);
    if (name == L"--help" || name == L"--version") {
      if (value) options.problem = name + L" takes no value";
      (name == L"--help" ? options.help : options.version) = true;
    } else if (name == L"--wait" || name == L"--config") {
      if (!value && i + 1 < arguments.size()) value = StripChar(arguments[++i], L"\"");
      if (!value) {
        options.problem =
            name + (name == L"--wait" ? L" needs a number of seconds" : L" needs a file");
      } else if (name == L"--config") {
        options.config_file = *value;
        if (value->empty()) options.problem = L"--config needs a file";
      } else if (const std::optional<int32_t> seconds = Seconds(*value)) {
        options.wait_seconds = *seconds;
      } else {
        options.problem = L"--wait needs a number of seconds, not \"" + *value + L"\"";
      }
    } else {
      options.problem = L"unknown option \"" + option +
                        L"\" (see --help; put -- before a message that begins with --)";
    }
  }
  return options;
}

std::vector<std::wstring> SendHelpLines() {
  return {
      L"Usage: kestrawind-send [OPTION]... recipient [message]... [/LE] [/LS] [/DEBUG]",
      L"Sends one text message as kestrawind does, with the same output, and exits with a",
      L"status from sysexits.h. With no message argument and standard input not a terminal,",
      L"the message is read from standard input (line ends at its end dropped).",
      L"",
      L"  --wait SECONDS  wait that long for a port that another run or program holds",
      L"                  (default " + std::to_wstring(kDefaultWaitSeconds) + L"; 0 fails at once)",
      L"  --config FILE   read FILE instead of kestrawind.ini beside the program",
      L"  --help          show this help and exit",
      L"  --version       show the version and exit",
      L"  --              end the options: what follows is recipient and message",
      L"",
      L"Exit status: 0 sent; 64 no recipient or bad options or input; 65 the message can't go",
      L"as it is; 69 the centre refused it; 70 a fault of the program; 72 the port's device is",
      L"missing or no serial port; 75 try again later; 77 no permission on the device or the",
      L"ini; 78 the configuration is missing or wrong. On a failure one line on standard",
      L"error names the cause.",
  };
}

std::wstring SendVersionLine() { return L"kestrawind-send (Kestrawind) " + FromLine(KW_VERSION); }

InputText TextFromInput(const std::string& bytes) {
  if (bytes.size() > kInputLimit) {
    return {L"", L"standard input holds more than " + std::to_wstring(kInputLimit) + L" bytes",
            kExitDataError};
  }
  for (const char c : bytes) {
    if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r') {
      return {L"", L"standard input holds binary data, not text", kExitUsage};
    }
  }
  const size_t end = bytes.find_last_not_of("\r\n");
  if (end == std::string::npos) return {L"", L"standard input holds no text", kExitUsage};
  const std::wstring read = FromLocale(bytes.substr(0, end + 1));
  std::wstring text;
  for (size_t i = 0; i < read.size(); ++i) {
    if (read[i] != L'\r') {
      text.push_back(read[i]);
    } else {
      text.push_back(L'\n');
      if (i + 1 < read.size() && read[i + 1] == L'\n') ++i;
    }
  }
  return {text, L"", 0};
}

std::wstring CodePageWarning(const std::wstring& text) {
  std::vector<uint32_t> codes;
  std::wstring named;
  for (size_t i = 0; i < text.size(); ++i) {
    uint32_t code = static_cast<uint32_t>(text[i]);
    size_t units = 1;
    // Where wchar_t has 16 bits, a character beyond U+FFFF comes as two surrogates.
    if (code >= 0xD800 && code < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] < 0xE000) {
      code = 0x10000 + ((code - 0xD800) << 10) + (static_cast<uint32_t>(text[i + 1]) - 0xDC00);
      units = 2;
    }
    const std::wstring character = text.substr(i, units);
    i += units - 1;
    if (units == 1 && LineCode(text[i]) != '?') continue;
    if (text[i] == L'?' || std::find(codes.begin(), codes.end(), code) != codes.end()) continue;
    codes.push_back(code);
    if (codes.size() > kNamedCharacters) continue;
    named += (named.empty() ? L"" : L", ") + Named(code, character);
  }
  if (codes.empty()) return L"";
  if (codes.size() > kNamedCharacters) {
    named += L" and " + std::to_wstring(codes.size() - kNamedCharacters) + L" more";
  }
  return L"warning: the line's code page (Windows-1252) has no " + named +
         L"; each goes out as \"?\"";
}

}  // namespace kw
