#include "config/ini_access.h"

#include "os/profile.h"

namespace kw {

std::wstring IniGet(const std::wstring& file, const std::wstring& section, const std::wstring& key,
                    const std::wstring& default_value) {
  return ProfileGetString(section, key, default_value, file);
}

void IniPut(const std::wstring& file, const std::wstring& section, const std::wstring& key,
            const std::wstring& value) {
  ProfileWriteString(section, key, value, file);
}

}  // namespace kw
