#ifndef KW_CONFIG_INI_ACCESS_H_
#define KW_CONFIG_INI_ACCESS_H_

#include <optional>
#include <string>
#include <utility>

#include "os/profile.h"

namespace kw {

/// The configuration file of a run: read once, at the first look-up; every look-up after that is
/// answered from what was read.
class IniFile {
 public:
  explicit IniFile(std::wstring path) : path_(std::move(path)) {}

  /// The full path of the file.
  const std::wstring& path() const { return path_; }
  /// The file as read (its keys, or why it couldn't be read); read on the first call.
  const ProfileFile& Contents();
  /// A key's value; the default when the file, the section or the key is missing.
  std::wstring Get(const std::wstring& section, const std::wstring& key,
                   const std::wstring& default_value);

 private:
  std::wstring path_;
  std::optional<ProfileFile> contents_;
};

/// Writes a key to the ini file.
void IniPut(const std::wstring& file, const std::wstring& section, const std::wstring& key,
            const std::wstring& value);

}  // namespace kw

#endif  // KW_CONFIG_INI_ACCESS_H_
