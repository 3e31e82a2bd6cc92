#ifndef KW_CONFIG_INI_ACCESS_H_
#define KW_CONFIG_INI_ACCESS_H_

#include <string>

namespace kw {

/// Reads a key from the given profile file; the default when the file, section or key is missing.
std::wstring IniRead(const std::wstring& section, const std::wstring& key, const std::wstring& file,
                     const std::wstring& defaultValue);

/// Reads a key like IniRead; an empty file name means the run's configuration file.
std::wstring IniGet(const std::wstring& file, const std::wstring& section, const std::wstring& key,
                    const std::wstring& defaultValue);

/// Writes a key to the profile file (the run's configuration file when file is empty).
void IniPut(const std::wstring& file, const std::wstring& section, const std::wstring& key,
            const std::wstring& value);

}  // namespace kw

#endif  // KW_CONFIG_INI_ACCESS_H_
