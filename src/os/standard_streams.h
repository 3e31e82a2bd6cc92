#ifndef KW_OS_STANDARD_STREAMS_H_
#define KW_OS_STANDARD_STREAMS_H_

#include <cstddef>
#include <string>

namespace kw {

/// Whether standard input is a terminal (a console on Windows), which nobody pipes text into.
bool StandardInputIsTerminal();

/// Reads standard input to its end, but no more than limit + 1 bytes, so that a caller sees that
/// more came than it takes; false when it can't be read.
bool ReadStandardInput(size_t limit, std::string* bytes);

/// Writes the bytes and the platform's line end to standard error in one write; true when all
/// of them were written.
bool WriteStandardErrorLine(const std::string& bytes);

}  // namespace kw

#endif  // KW_OS_STANDARD_STREAMS_H_
