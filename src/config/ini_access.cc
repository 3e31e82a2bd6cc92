#include "config/ini_access.h"

#include "os/profile.h"

namespace kw {

std::wstring IniGet(const std::wstring& file, const std::wstring& section, const std::wstring& key,
                    const std::wstring& defaultValue) {
  return ProfileGetString(section, key, defaultValue, file);
}

void IniPut(const std::wstring& file, const std::wstring& section, const std::wstring& key,
            const std::wstring& value) {
  ProfileWriteString(section, key, value, file);
}

}  // namespace kw
