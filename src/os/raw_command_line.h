#ifndef KW_OS_RAW_COMMAND_LINE_H_
#define KW_OS_RAW_COMMAND_LINE_H_

#include <string>
#include <vector>

namespace kw {

/// Joins an argument vector (already split by the shell) into one raw line that
/// SplitCommandLine splits back into the same arguments, up to the quotes that the program
/// strips from both ends of each argument anyway.
std::wstring BuildRawCommandLine(const std::vector<std::wstring>& args);

}  // namespace kw

#endif  // KW_OS_RAW_COMMAND_LINE_H_
