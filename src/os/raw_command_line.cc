#include "os/raw_command_line.h"

#include <algorithm>

namespace kw {
namespace {

/// Whether the splitter would cut, re-read or drop the argument if it stood bare on the line.
bool NeedsQuotes(const std::wstring& arg) {
  return arg.empty() || arg.front() == L'>' || arg.find_first_of(L" \t\"") != std::wstring::npos;
}

/// The argument in double quotes, as the splitter reads it back.
std::wstring Quoted(const std::wstring& arg) {
  // The splitter takes a quote behind a backslash as an escaped quote, so trailing backslashes
  // go behind the closing quote, where they are plain characters: "a b"\ reads as "a b\.
  const size_t kept = arg.find_last_not_of(L'\\') + 1;  // npos + 1 == 0 for all backslashes
  std::wstring quoted = L"\"";
  for (size_t i = 0; i < kept; ++i) {
    // An inner quote becomes \" whose backslash the splitter swaps for the quote; a backslash
    // of the argument just before it stays, because only the one in front is swapped.
    if (arg[i] == L'"') quoted.push_back(L'\\');
    quoted.push_back(arg[i]);
  }
  quoted.push_back(L'"');
  quoted.append(arg, kept, std::wstring::npos);
  return quoted;
}

}  // namespace

std::wstring BuildRawCommandLine(const std::vector<std::wstring>& args) {
  std::wstring line;
  for (size_t i = 0; i < args.size(); ++i) {
    if (i > 0) line.push_back(L' ');
    line += NeedsQuotes(args[i]) ? Quoted(args[i]) : args[i];
  }
  return line;
}

std::wstring TextBehindProgramName(const std::wstring& command_line) {
  size_t at = 0;
  if (!command_line.empty() && command_line[0] == L'"') {
    const size_t close = command_line.find(L'"', 1);
    // A name whose quote never closes takes the whole line.
    at = close == std::wstring::npos ? command_line.size() : close + 1;
  } else {
    at = std::min(command_line.find_first_of(L" \t"), command_line.size());
  }
  at = std::min(command_line.find_first_not_of(L" \t", at), command_line.size());
  return command_line.substr(at);
}

}  // namespace kw
