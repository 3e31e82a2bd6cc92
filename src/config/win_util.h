#ifndef KW_CONFIG_WIN_UTIL_H_
#define KW_CONFIG_WIN_UTIL_H_

#include <string>

namespace kw {

/// Reads a key from the given profile file; the default when the file, section or key is missing.
std::wstring IniRead(const std::wstring& section, const std::wstring& key,
                     const std::wstring& file, const std::wstring& defaultValue);

/// Reads a key like IniRead; an empty file name means the run's configuration file.
std::wstring IniGet(const std::wstring& file, const std::wstring& section, const std::wstring& key,
                    const std::wstring& defaultValue);

/// Writes a key to the profile file (the run's configuration file when file is empty).
void IniPut(const std::wstring& file, const std::wstring& section, const std::wstring& key,
            const std::wstring& value);

/// Waits until the clock shows the given whole seconds passed, delivering serial events meanwhile.
void WaitSeconds(int32_t seconds);

/// True when a plain file stands at the path; a folder doesn't count.
bool FileExists(const std::wstring& path);

}  // namespace kw

#endif  // KW_CONFIG_WIN_UTIL_H_
