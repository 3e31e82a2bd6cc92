#ifndef KW_OS_PROFILE_H_
#define KW_OS_PROFILE_H_

#include <string>

namespace kw {

/// Reads one key of a profile (ini) file the way the Windows profile API does: the value, cut to
/// 253 characters, or the default when the file, the section or the key is missing.
std::wstring ProfileGetString(const std::wstring& section, const std::wstring& key,
                              const std::wstring& default_value, const std::wstring& path);

/// Sets one key of a profile file, keeping every other byte of it; adds the key, the section or
/// the file where needed. Reports nothing.
void ProfileWriteString(const std::wstring& section, const std::wstring& key,
                        const std::wstring& value, const std::wstring& path);

}  // namespace kw

#endif  // KW_OS_PROFILE_H_
