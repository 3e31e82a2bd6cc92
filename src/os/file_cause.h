#ifndef KW_OS_FILE_CAUSE_H_
#define KW_OS_FILE_CAUSE_H_

#include <string>

#include "base/error.h"

namespace kw {

/// Why the file at the path can't be read as a plain file: kNone when it can; else kMissing,
/// kNotAPort (a folder or a device), kNoPermission or kOther, with the system's reason.
Cause FileReadCause(const std::wstring& path, std::wstring* reason);

}  // namespace kw

#endif  // KW_OS_FILE_CAUSE_H_
