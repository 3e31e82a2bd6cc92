#include "config/ini_access.h"

namespace kw {

const ProfileFile& IniFile::Contents() {
  if (!contents_) contents_ = ReadProfile(path_);
  return *contents_;
}

std::wstring IniFile::Get(const std::wstring& section, const std::wstring& key,
                          const std::wstring& default_value) {
  return Contents().profile.Get(section, key, default_value);
}

void IniPut(const std::wstring& file, const std::wstring& section, const std::wstring& key,
            const std::wstring& value) {
  ProfileWriteString(section, key, value, file);
}

}  // namespace kw
