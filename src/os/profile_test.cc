#include "os/profile.h"

#include <gtest/gtest.h>

#include <clocale>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "temp_dir.h"

namespace kw {
namespace {

namespace fs = std::filesystem;
using std::string_literals::operator""s;  // for bytes with a NUL inside

/// A fresh folder under the temp folder, removed with everything in it at the end.
struct TempFolder {
  ~TempFolder() { fs::remove_all(path); }
  fs::path path = MakeTempFolder("kw-profile-"), file = path / "t.ini";
};

/// The whole file, byte for byte.
std::string ReadBytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

/// The bytes of a file saved as UTF-16 with its byte-order mark, from code units.
std::string Utf16(const std::u16string& units, bool big_endian = false) {
  std::string bytes;
  for (const char16_t unit : u"\uFEFF" + units) {
    const char high = static_cast<char>(unit >> 8), low = static_cast<char>(unit & 0xFF);
    bytes += big_endian ? std::string{high, low} : std::string{low, high};
  }
  return bytes;
}

/// Writes the bytes (if any) to a file and reads one key of it, with "dflt" as the default.
std::wstring Get(std::optional<std::string> bytes, const wchar_t* section, const wchar_t* key) {
  TempFolder folder;
  if (bytes) std::ofstream(folder.file, std::ios::binary) << *bytes;
  return ProfileGetString(section, key, L"dflt", folder.file.wstring());
}

TEST(ProfileGetString, FollowsTheFileRules) {
  const struct {
    const char* what;
    std::optional<std::string> bytes;  // none: no file
    const wchar_t *section, *key;
    std::wstring want;
  } cases[] = {
      {"LF", "[a]\nk=v\nx=y\n", L"a", L"x", L"y"},
      {"CR LF", "[a]\r\nk=v\r\nx=y\r\n", L"a", L"k", L"v"},
      {"lone CR", "[a]\rk=v\rx=y\r", L"a", L"x", L"y"},
      {"lone CR, not in value", "[a]\rk=v\rx=y\r", L"a", L"k", L"v"},
      {"no final line end", "[a]\nk=v", L"a", L"k", L"v"},
      {"byte-order mark", "\xEF\xBB\xBF[a]\nk=v\n", L"a", L"k", L"v"},
      {"UTF-16LE", Utf16(u"[a]\r\nk=caf\u00E9 \U0001F600\r\n"), L"a", L"k",
       L"caf\u00E9 \U0001F600"},
      {"UTF-16BE", Utf16(u"[a]\nk=\u20AC\n", true), L"a", L"k", L"\u20AC"},
      {"UTF-16, odd last byte", Utf16(u"[a]\nk=v") + "x", L"a", L"k", L"v"},
      {"NUL ends the line", "[a]\nk=v\0junk\nx=y\n"s, L"a", L"k", L"v"},
      {"line after a NUL", "[a]\nk=v\0junk\nx=y\n"s, L"a", L"x", L"y"},
      {"NUL before =", "[a]\nk\0=v\n"s, L"a", L"k", L"dflt"},
      {"junk after last ]", "[ a b ]; note\nk=v\n", L"a b", L"k", L"v"},
      {"name up to last ]", "[a]b]\nk=v\n", L"a]b", L"k", L"v"},
      {"not up to first ]", "[a]b]\nk=v\n", L"a", L"k", L"dflt"},
      {"[ without ] is no header", "[a]\nk=1\n[b\nk=2\n", L"a", L"k", L"1"},
      {"[ without ] has no section", "[b\nk=2\n", L"b", L"k", L"dflt"},
      {"[ without ] is no key", "[a]\n[k=2\n", L"a", L"[k", L"dflt"},
      {"case of names", "[SeC]\nKeY=v\n", L"sEc", L"kEy", L"v"},
      {"blanks around names", " \t[\t a \t]\n \tk \t= v\n", L"a", L"k", L"v"},
      {"second section ignored", "[a]\nk=1\n[A]\nk=2\nj=3\n", L"a", L"j", L"dflt"},
      {"first section searched", "[a]\nk=1\n[A]\nk=2\n", L"a", L"k", L"1"},
      {"first key wins", "[a]\nk=1\nK=2\n", L"a", L"k", L"1"},
      {"first key wins when empty", "[a]\nk=\nk=2\n", L"a", L"k", L""},
      {"section ends at next header", "[a]\n[b]\nk=v\n", L"a", L"k", L"dflt"},
      {"first = splits", "[a]\nk=x=y\n", L"a", L"k", L"x=y"},
      {"value trimmed", "[a]\nk= \t v w \t \n", L"a", L"k", L"v w"},
      {"double quotes", "[a]\nk=\"v\"\n", L"a", L"k", L"v"},
      {"single quotes", "[a]\nk='v'\n", L"a", L"k", L"v"},
      {"quotes after trim", "[a]\nk= \" v \" \n", L"a", L"k", L" v "},
      {"mismatched quotes", "[a]\nk=\"v'\n", L"a", L"k", L"\"v'"},
      {"one pair only", "[a]\nk=\"\"v\"\"\n", L"a", L"k", L"\"v\""},
      {"lone quote", "[a]\nk=\"\n", L"a", L"k", L"\""},
      {"; and # in value", "[a]\nk=x ;y #z\n", L"a", L"k", L"x ;y #z"},
      {"value starting with ;", "[a]\nk=;x\n", L"a", L"k", L";x"},
      {"key without =", "[a]\nk\n", L"a", L"k", L"dflt"},
      {"empty value", "[a]\nk=  \n", L"a", L"k", L""},
      {"missing section", "[a]\nk=v\n", L"b", L"k", L"dflt"},
      {"missing key", "[a]\nk=v\n", L"a", L"j", L"dflt"},
      {"key before any section", "k=v\n[a]\n", L"a", L"k", L"dflt"},
      {"missing file", std::nullopt, L"a", L"k", L"dflt"},
      {"cut to 253", "[a]\nk=" + std::string(300, 'x'), L"a", L"k", std::wstring(253, L'x')},
      {"253 kept whole", "[a]\nk=" + std::string(253, 'x'), L"a", L"k", std::wstring(253, L'x')},
  };
  for (const auto& c : cases) EXPECT_EQ(Get(c.bytes, c.section, c.key), c.want) << c.what;
}

TEST(ProfileGetString, DecodesTheLocaleAndFallsBackToWindows1252) {
  const std::string old_locale = std::setlocale(LC_ALL, nullptr);
  if (!std::setlocale(LC_ALL, "C.UTF-8")) {
    GTEST_SKIP() << "this C runtime has no UTF-8 locale (mingw's has none; Windows reads the "
                    "ANSI code page, tested with the text conversions)";
  }
  EXPECT_EQ(Get("[a]\nk=caf\xC3\xA9\n", L"a", L"k"), L"caf\u00E9");
  EXPECT_EQ(Get("[a]\nk=caf\xE9\n", L"a", L"k"), L"caf\u00E9");
  EXPECT_EQ(Get("[a]\nk=\x80\n", L"a", L"k"), L"\u20AC");
  std::string long_value;
  for (int i = 0; i < 300; ++i) long_value += "\xC3\xA9";
  EXPECT_EQ(Get("[a]\nk=" + long_value, L"a", L"k"), std::wstring(253, L'\u00E9'));
  TempFolder folder;
  ProfileWriteString(L"a", L"k", L"\u00E9", folder.file.wstring());
  EXPECT_EQ(ReadBytes(folder.file), "[a]\r\nk=\xC3\xA9\r\n");
  std::setlocale(LC_ALL, old_locale.c_str());
}

TEST(ProfileWriteString, ChangesOnlyWhatItMust) {
  const struct {
    const char* what;
    std::optional<std::string> before;  // none: no file
    const wchar_t *section, *key;
    std::string after;
  } cases[] = {
      {"in place, all else kept", "; top\r\n\r\n[a]\r\n  K = old ; c\r\nz=1\n[b]\rk=2", L"A", L"k",
       "; top\r\n\r\n[a]\r\nK=new\r\nz=1\n[b]\rk=2"},
      {"in place, last line", "[a]\nk=old", L"a", L"k", "[a]\nk=new"},
      {"in place, first of two", "[a]\nk=\nk=2\n", L"a", L"k", "[a]\nk=new\nk=2\n"},
      {"in place, NUL line", "[a]\nk=1\0junk\r\nx\n"s, L"a", L"k", "[a]\nk=new\r\nx\n"},
      {"in place, mark kept", "\xEF\xBB\xBF[a]\nk=1\n", L"a", L"k", "\xEF\xBB\xBF[a]\nk=new\n"},
      {"add key, last section", "[a]\r\nk=1\r\n", L"a", L"j", "[a]\r\nk=1\r\nj=new\r\n"},
      {"add key, mid file", "[a]\nk=1\n\n;c\n[b]\n", L"a", L"j", "[a]\nk=1\nj=new\r\n\n;c\n[b]\n"},
      {"add key, section without keys", "[a]\n[b]\n", L"a", L"j", "[a]\nj=new\r\n[b]\n"},
      {"add key, no final line end", "[a]\nk=1", L"a", L"j", "[a]\nk=1\r\nj=new\r\n"},
      {"add key, first [a]", "[a]\nk=1\n[a]\nj=5\n", L"a", L"j", "[a]\nk=1\nj=new\r\n[a]\nj=5\n"},
      {"add section", "[a]\nk=1\n", L"b", L"j", "[a]\nk=1\n[b]\r\nj=new\r\n"},
      {"add section, lone CR end", "[a]\rk=1\r", L"b", L"j", "[a]\rk=1\r[b]\r\nj=new\r\n"},
      {"add section, no final line end", "[a]\nk=1", L"b", L"j", "[a]\nk=1\r\n[b]\r\nj=new\r\n"},
      {"add section, empty file", "", L"b", L"j", "[b]\r\nj=new\r\n"},
      {"add section, mark only", "\xEF\xBB\xBF", L"b", L"j", "\xEF\xBB\xBF[b]\r\nj=new\r\n"},
      {"create", std::nullopt, L"s", L"k", "[s]\r\nk=new\r\n"},
      // A file saved as UTF-16 stays so, every other unit kept (a lone surrogate too).
      {"UTF-16LE, add key", Utf16(u"[a]\r\nk=\xD800\r\n[b]\r\n"), L"a", L"j",
       Utf16(u"[a]\r\nk=\xD800\r\nj=new\r\n[b]\r\n")},
      {"UTF-16BE, in place", Utf16(u"[a]\nk=\U0001F600\nz=\U0001F600", true), L"a", L"k",
       Utf16(u"[a]\nk=new\nz=\U0001F600", true)},
  };
  for (const auto& c : cases) {
    TempFolder folder;
    if (c.before) std::ofstream(folder.file, std::ios::binary) << *c.before;
    ProfileWriteString(c.section, c.key, L"new", folder.file.wstring());
    EXPECT_EQ(ReadBytes(folder.file), c.after) << c.what;
  }
  TempFolder folder;  // a folder is no file: it reads as missing and stays a folder
  EXPECT_EQ(ProfileGetString(L"a", L"k", L"dflt", folder.path.wstring()), L"dflt");
  ProfileWriteString(L"a", L"k", L"v", folder.path.wstring());
  EXPECT_TRUE(fs::is_directory(folder.path));
}

}  // namespace
}  // namespace kw
