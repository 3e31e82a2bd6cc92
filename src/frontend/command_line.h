#ifndef KW_FRONTEND_COMMAND_LINE_H_
#define KW_FRONTEND_COMMAND_LINE_H_

#include <string>
#include <vector>

namespace kw {

/// Splits a raw command line into arguments. An opening quote at the start of an argument stays
/// in it; a quote behind a backslash inside quotes is an escaped quote; ">" at the start of an
/// argument ends the line. Raises the overflow failure for a line over 32,767 characters.
std::vector<std::wstring> SplitCommandLine(const std::wstring& command_line);

}  // namespace kw

#endif  // KW_FRONTEND_COMMAND_LINE_H_
