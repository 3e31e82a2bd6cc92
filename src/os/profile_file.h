#ifndef KW_OS_PROFILE_FILE_H_
#define KW_OS_PROFILE_FILE_H_

#include <string>

#include "os/platform.h"

namespace kw {

// The platform's side of the profile reader and writer: a whole file by its full path (wide on
// Windows, so that any folder name works) and the encoding of a file's 8-bit text.

/// Reads the whole file into bytes; false, with empty bytes and the problem set, when it can't.
bool ReadWholeFile(const std::wstring& path, std::string& bytes, FileProblem& problem);

/// Replaces the file's bytes, making the file where it is missing; false when that fails.
bool WriteWholeFile(const std::wstring& path, const std::string& bytes);

/// Whether the 8-bit text of a profile file (its bytes from body on, past a byte-order mark) is
/// read as UTF-8: on Windows when it is valid UTF-8 (else it is ANSI); elsewhere never, as the
/// locale's encoding reads it (UTF-8 with no locale set).
bool ReadsAsUtf8(const std::string& bytes, size_t body);

/// Decodes a line of a profile file's 8-bit text: as UTF-8, or in the locale's encoding.
std::wstring DecodeProfileText(const std::string& bytes, bool utf8);

/// Encodes a line for a profile file in the file's 8-bit encoding (see DecodeProfileText).
std::string EncodeProfileText(const std::wstring& text, bool utf8);

}  // namespace kw

#endif  // KW_OS_PROFILE_FILE_H_
