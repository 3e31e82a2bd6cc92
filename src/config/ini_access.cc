#include "config/ini_access.h"

#include "frontend/main_console.h"
#include "os/platform.h"
#include "os/profile.h"

namespace kw {
namespace {

/// The file rule of IniGet and IniPut: the given file, else the run's configuration file, else
/// the default name beside the executable.
std::wstring ProfileFile(const std::wstring& file) {
  if (!file.empty()) return file;
  if (!ConfigFilePath.empty()) return ConfigFilePath;
  return ExecutableFolder() + kPathSeparator + L"Kestrawind.ini";
}

}  // namespace

std::wstring IniRead(const std::wstring& section, const std::wstring& key, const std::wstring& file,
                     const std::wstring& defaultValue) {
  return ProfileGetString(section, key, defaultValue, file);
}

std::wstring IniGet(const std::wstring& file, const std::wstring& section, const std::wstring& key,
                    const std::wstring& defaultValue) {
  return IniRead(section, key, ProfileFile(file), defaultValue);
}

void IniPut(const std::wstring& file, const std::wstring& section, const std::wstring& key,
            const std::wstring& value) {
  ProfileWriteString(section, key, value, ProfileFile(file));
}

}  // namespace kw
