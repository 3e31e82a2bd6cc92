#include <gtest/gtest.h>
#include <windows.h>

#include "os/profile.h"
#include "unit_util.h"

// 8-bit text reads as UTF-8 where all of it is valid UTF-8, else in the ANSI code page (1252
// here); a key is written in the file's own encoding. Each row writes k=e-acute into the file.
TEST(ProfileFileWin32, ReadsAndWritesUtf8OrAnsi) {
  if (::GetACP() != 1252) GTEST_SKIP() << "the bytes below are Windows-1252";
  const struct {
    std::string before, after;
    std::wstring z;
  } cases[] = {
      {"[a]\nz=\xC3\xAB\n", "[a]\nz=\xC3\xAB\nk=\xC3\xA9\r\n", L"\u00EB"},
      {"[a]\nz=\xC3\xAB\xE9\n", "[a]\nz=\xC3\xAB\xE9\nk=\xE9\r\n", L"\u00C3\u00AB\u00E9"},
  };
  for (const auto& c : cases) {
    kw::TempFolder folder;
    const std::wstring path = (folder.path / "t.ini").wstring();
    std::ofstream(folder.path / "t.ini", std::ios::binary) << c.before;
    kw::ProfileWriteString(L"a", L"k", L"\u00E9", path);
    EXPECT_EQ(kw::FileBytes(folder.path / "t.ini"), c.after);
    EXPECT_EQ(kw::ProfileGetString(L"a", L"z", L"", path), c.z);
    EXPECT_EQ(kw::ProfileGetString(L"a", L"k", L"", path), L"\u00E9");
  }
}
