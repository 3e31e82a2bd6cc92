#ifndef KW_SIM_OPTIONS_H_
#define KW_SIM_OPTIONS_H_

#include <string>
#include <vector>

namespace kw::sim {

/// Cuts the bytes into count chunks of nearly equal size, each at least one byte.
std::vector<std::string> SplitInto(const std::string& bytes, int count);

/// Reads an option's value as a whole decimal number not below low; raises
/// std::invalid_argument naming the option otherwise.
long long NumberOption(const std::string& name, const std::string& value, long long low);

/// The value of one hexadecimal digit, either case; -1 for any other character.
int HexDigitValue(char c);

}  // namespace kw::sim

#endif  // KW_SIM_OPTIONS_H_
