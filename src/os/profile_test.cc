#include "os/profile.h"

#include <gtest/gtest.h>

#include <tuple>

#include "os/platform.h"
#include "unit_util.h"

namespace kw {

using std::string_literals::operator""s;  // for bytes with a NUL inside

/// The bytes of a file saved as UTF-16 with its byte-order mark.
static std::string Utf16(const std::u16string& units, bool big_endian = false) {
  std::string bytes;
  for (const char16_t u : u"\uFEFF" + units)
    bytes += big_endian ? std::string{char(u >> 8), char(u)} : std::string{char(u), char(u >> 8)};
  return bytes;
}

/// A file t.ini in the folder that holds the bytes; none for "(none)".
static std::wstring Put(const TempFolder& folder, const std::string& bytes) {
  if (bytes != "(none)") std::ofstream(folder.path / "t.ini", std::ios::binary) << bytes;
  return (folder.path / "t.ini").wstring();
}

// Each row reads the keys named by the characters of keys from section "a", "dflt" as default.
TEST(Profile, ReadsByTheFileRules) {
  const std::tuple<std::string, std::wstring, std::wstring> cases[] = {
      {"[a]\nj=\xE9\rk=v\r\ni=2", L"jki", L"\u00E9|v|2|"},  // LF, CR, CR LF, no end
      {"[a]\nk=Zo\xC3\xAB\n", L"k", L"Zo\u00EB|"},          // UTF-8, on Windows too
      // A lone surrogate stays; a pair is one character, at the file's end too.
      {Utf16(u"[a]\r\nk=caf\u00E9\xDC00 \U00010000\U0001F600"), L"k",
       L"caf\u00E9\xDC00 \U00010000\U0001F600|"},
      // An odd last byte is dropped, and the high surrogate before it stays alone.
      {Utf16(u"[a]\nk=\u20AC\nj=\xD800", true) + "\xDC", L"kj", L"\u20AC|\xD800|"},
      {"[a]\nj\0=1\nk=v\0junk\n"s, L"kj", L"v|dflt|"},  // a NUL ends its line
      // Names: case, blanks, text after the last "]", a "[" line without "]", one section only.
      {"k=0\n[a]b]\nj=1\n \t[ A ];\n \tK \t= v\n[b\ni=2\n[A]\nh=3", L"jkih", L"dflt|v|2|dflt|"},
      {"[a]\ni\nj=x=y\nk= \t\nk=2\n", L"ijk", L"dflt|x=y||"},
      {"[a]\nk= \" v \" \nj='v'\ni=\"v'\nh=\"\"v\"\"\ng=\"\nf=\tv ;w #z ", L"kjihgf",
       L" v |v|\"v'|\"v\"|\"|v ;w #z|"},
      {"[a]\nk=" + std::string(300, 'x'), L"k", std::wstring(253, L'x') + L"|"},
  };
  for (const auto& [bytes, keys, want] : cases) {
    TempFolder folder;
    std::wstring got, path = Put(folder, bytes);
    for (const wchar_t key : keys) got += ProfileGetString(L"a", {key}, L"dflt", path) + L"|";
    EXPECT_EQ(got, want) << testing::PrintToString(bytes);
  }
}

// Each row sets key k of the section to "new".
TEST(Profile, WritesOnlyWhatItMust) {
  const std::tuple<std::string, const wchar_t*, std::string> cases[] = {
      {";\r\n\r\n[a]\r\n K = o;\r\nz=1\n[b]\rk=2", L"A", ";\r\n\r\n[a]\r\nK=new\r\nz=1\n[b]\rk=2"},
      {"\xEF\xBB\xBF[a]\nk=1\0junk\r\nx\n"s, L"a", "\xEF\xBB\xBF[a]\nk=new\r\nx\n"},
      {"[a]\nz=1\n\n;c\n[b]\n", L"a", "[a]\nz=1\nk=new\r\n\n;c\n[b]\n"},
      {"[a]\n[b]\n", L"a", "[a]\nk=new\r\n[b]\n"},
      {"[a]\nz=1", L"a", "[a]\nz=1\r\nk=new\r\n"},
      {"[a]\rz=1\r", L"b", "[a]\rz=1\r[b]\r\nk=new\r\n"},
      {"[a]\nz=1", L"b", "[a]\nz=1\r\n[b]\r\nk=new\r\n"},
      {"\xEF\xBB\xBF", L"b", "\xEF\xBB\xBF[b]\r\nk=new\r\n"},
      {"(none)", L"b", "[b]\r\nk=new\r\n"},
      // A file saved as UTF-16 stays so, every other unit kept (a lone surrogate and U+FFFF too).
      {Utf16(u"[a]\r\nz=\xD800\xFFFF\r\n[b]\r\n"), L"a",
       Utf16(u"[a]\r\nz=\xD800\xFFFF\r\nk=new\r\n[b]\r\n")},
      {Utf16(u"[a]\nk=1\nz=\U0001F600", true), L"a", Utf16(u"[a]\nk=new\nz=\U0001F600", true)},
  };
  for (const auto& [before, section, after] : cases) {
    TempFolder folder;
    ProfileWriteString(section, L"k", L"new", Put(folder, before));
    EXPECT_EQ(FileBytes(folder.path / "t.ini"), after) << testing::PrintToString(before);
  }
  TempFolder folder;  // a folder is no file
  EXPECT_NE(ReadProfile(folder.path.wstring()).problem.cause, Cause::kNone);
  // A file whose name the ANSI code page can't hold is reached by its wide name.
  const std::wstring path = folder.path.wstring() + kPathSeparator + L"\u77ED\u4FE1.ini";
  EXPECT_EQ(ReadProfile(path).problem.cause, Cause::kMissing);
  ProfileWriteString(L"a", L"k", L"v", path);
  EXPECT_EQ(ProfileGetString(L"a", L"k", L"dflt", path), L"v");
}

}  // namespace kw
