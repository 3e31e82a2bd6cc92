#ifndef KW_OS_RAW_COMMAND_LINE_H_
#define KW_OS_RAW_COMMAND_LINE_H_

#include <string>
#include <vector>

namespace kw {

/// Joins an argument vector (already split by the shell) into one raw line that
/// SplitCommandLine splits back into the same arguments, up to the quotes that the program
/// strips from both ends of each argument anyway.
std::wstring BuildRawCommandLine(const std::vector<std::wstring>& args);

/// The text behind the program's own name in a whole command line, with the name cut off the way
/// Windows itself reads it: up to the closing quote when it starts with one (no escapes), else up
/// to the first blank or tab; the blanks and tabs behind it go too.
std::wstring TextBehindProgramName(const std::wstring& command_line);

}  // namespace kw

#endif  // KW_OS_RAW_COMMAND_LINE_H_
