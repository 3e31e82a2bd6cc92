// The ini reader and writer: a value read from any file is one line, and a value written and read
// back is the value as the reading rules give it.
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "fuzz_util.h"
#include "os/locale_text-posix.h"
#include "os/profile.h"

namespace kw::fuzz {
namespace {

std::wstring g_path;
constexpr std::wstring_view kLineEnds(L"\r\n\0", 3);

/// A value as a read hands it back: up to a line break or NUL, trimmed of blanks and tabs, one
/// pair of matching outer quotes removed, cut to 253 characters.
std::wstring AsRead(std::wstring value) {
  value = value.substr(0, value.find_first_of(kLineEnds));
  value.erase(value.find_last_not_of(L" \t") + 1);
  value.erase(0, value.find_first_not_of(L" \t"));
  if (value.size() >= 2 && (value[0] == L'"' || value[0] == L'\'') && value.back() == value[0]) {
    value = value.substr(1, value.size() - 2);
  }
  return value.substr(0, 253);
}

}  // namespace

void FuzzOne(const std::string& input) {
  // The input: section NUL key NUL value NUL (each decoded as the reader decodes a line), then
  // the file's bytes.
  std::string rest = input;
  const std::wstring section = FromLocale(NextField(rest));
  const std::wstring key = FromLocale(NextField(rest));
  const std::wstring value = FromLocale(NextField(rest));
  std::ofstream(ToLocale(g_path), std::ios::binary | std::ios::trunc) << rest;

  const std::wstring read = ProfileGetString(section, key, L"", g_path);
  Require(read.size() <= 253 && read.find_first_of(kLineEnds) == std::wstring::npos,
          "a value read is one line of at most 253 characters");

  // Any value under a name the file can hold reads back as the rules give it. A name or value
  // with what is no Unicode character (past U+10FFFF) a file saved as UTF-16 can't hold.
  const size_t key_start = key.find_first_not_of(L" \t");
  const std::wstring all = section + key + value;
  if (section.find_first_of(L"\r\n") != std::wstring::npos ||
      key.find_first_of(L"\r\n=") != std::wstring::npos ||
      (key_start != std::wstring::npos && key[key_start] == L'[') ||
      std::any_of(all.begin(), all.end(), [](wchar_t c) { return c > 0x10FFFF; })) {
    return;
  }
  ProfileWriteString(section, key, value, g_path);
  Require(ProfileGetString(section, key, L"\x01", g_path) == AsRead(value),
          "a written value reads back as the rules give it");
}

}  // namespace kw::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ::setenv("LC_ALL", "C.UTF-8", 1);  // as a run in a UTF-8 environment loads it
  kw::LoadUserLocale();
  // In memory where there is such a folder: every run rewrites the file dozens of times, and a
  // disk file system flushes a truncated file on close.
  char memory[] = "/dev/shm/kw-fuzz-XXXXXX", disk[] = "/tmp/kw-fuzz-XXXXXX";
  const char* folder = mkdtemp(memory) ? memory : mkdtemp(disk);
  kw::fuzz::Require(folder != nullptr, "a temp folder");
  kw::fuzz::g_path = (std::filesystem::path(folder) / "kestrawind.ini").wstring();
  atexit(
      [] { std::filesystem::remove_all(std::filesystem::path(kw::fuzz::g_path).parent_path()); });
  return 0;
}
