#include "frontend/command_line.h"

#include "base/int16.h"
#include "base/string_util.h"

namespace kw {
namespace {

enum class SplitState { BetweenArguments, InArgument, InQuotes };

}  // namespace

std::vector<std::wstring> SplitCommandLine(const std::wstring& command_line) {
  // Position and length are 16-bit counters.
  const int16_t length = CheckInt16(static_cast<long long>(command_line.size()));
  std::vector<std::wstring> arguments;
  SplitState state = SplitState::BetweenArguments;
  std::wstring token;
  wchar_t current = 0;
  wchar_t previous = 0;

  for (int16_t position = 0; position < length; ++position) {
    previous = current;
    current = command_line[position];
    const bool last = position == length - 1;
    const bool blank = IsWhitespace(std::wstring(1, current));

    switch (state) {
      case SplitState::BetweenArguments:
        if (current == L'"') {
          state = SplitState::InQuotes;
          token = L"\"";  // the opening quote stays in the token
        } else if (current == L'>') {
          return arguments;  // redirection: the rest of the line is not ours
        } else if (!blank) {
          state = SplitState::InArgument;
          token = std::wstring(1, current);
        }
        if (last && state != SplitState::BetweenArguments) arguments.push_back(token);
        break;

      case SplitState::InArgument:
        if (last) {
          token.push_back(current);
          arguments.push_back(token);
        } else if (blank) {
          arguments.push_back(token);
          state = SplitState::BetweenArguments;
        } else if (current == L'"') {
          state = SplitState::InQuotes;
        } else {
          token.push_back(current);
        }
        break;

      case SplitState::InQuotes:
        if (current == L'"' && previous == L'\\') {
          token.back() = L'"';
        } else if (current == L'"') {
          state = SplitState::InArgument;
        } else {
          token.push_back(current);
        }
        if (last) arguments.push_back(token);
        break;
    }
  }
  return arguments;
}

}  // namespace kw
