// The command-line splitter on any raw line, and the round trip of an argument vector through
// the line that the POSIX side rebuilds from it.
#include <vector>

#include "base/string_util.h"
#include "frontend/command_line.h"
#include "fuzz_util.h"
#include "os/raw_command_line.h"

namespace kw::fuzz {

void FuzzOne(const std::string& input) {
  // One character a byte, read as the line's character set, so that wide characters occur too.
  const std::wstring text = FromLine(input);
  if (text.size() > 32767) return;  // past the 16-bit limit the splitter raises, as tested

  size_t characters = 0;
  for (const std::wstring& argument : SplitCommandLine(text)) {
    characters += argument.size();
    Require(!argument.empty() && characters <= text.size(), "non-empty arguments from the line");
  }

  // The same bytes as an argument vector, each argument ended by a NUL as the kernel keeps it.
  std::vector<std::wstring> args(1);
  for (wchar_t c : text) c == 0 ? void(args.emplace_back()) : args.back().push_back(c);
  const std::wstring line = BuildRawCommandLine(args);
  if (line.size() > 32767) return;
  const std::vector<std::wstring> split = SplitCommandLine(line);
  Require(split.size() == args.size(), "the rebuilt line gives back as many arguments");
  for (size_t i = 0; i < args.size(); ++i) {
    // The program strips quotes from both ends of every argument; nothing else may change, and
    // an argument that needs no quotes (an option, say) comes back exactly.
    Require(StripChar(split[i], L"\"") == StripChar(args[i], L"\""),
            "each argument comes back, up to its outer quotes");
    const bool bare = !args[i].empty() && args[i][0] != L'>' &&
                      args[i].find_first_of(L" \t\"") == std::wstring::npos;
    Require(!bare || split[i] == args[i], "a plain argument comes back exactly");
  }
}

}  // namespace kw::fuzz
