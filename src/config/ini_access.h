#ifndef KW_CONFIG_INI_ACCESS_H_
#define KW_CONFIG_INI_ACCESS_H_

#include <string>

namespace kw {

/// Reads a key from the ini file; the default when the file, section or key is missing.
std::wstring IniGet(const std::wstring& file, const std::wstring& section, const std::wstring& key,
                    const std::wstring& default_value);

/// Writes a key to the ini file.
void IniPut(const std::wstring& file, const std::wstring& section, const std::wstring& key,
            const std::wstring& value);

}  // namespace kw

#endif  // KW_CONFIG_INI_ACCESS_H_
