#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "os/platform.h"
#include "temp_dir.h"

namespace kw {
namespace {

namespace fs = std::filesystem;

/// Runs WriteStandardOutput with the standard output handle set to the one given.
bool WriteTo(HANDLE handle, const std::string& bytes) {
  const HANDLE saved = ::GetStdHandle(STD_OUTPUT_HANDLE);
  ::SetStdHandle(STD_OUTPUT_HANDLE, handle);
  const bool ok = WriteStandardOutput(bytes);
  ::SetStdHandle(STD_OUTPUT_HANDLE, saved);
  return ok;
}

TEST(PlatformWin32, StandardOutputIsByteExactAndAMissingHandleLosesOnlyTheText) {
  const fs::path folder = MakeTempFolder("kw-platform-");
  const fs::path file = folder / "out.txt";
  const HANDLE out = ::CreateFileW(file.wstring().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                   FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(out, INVALID_HANDLE_VALUE);
  const std::string bytes = std::string("line\r\n\n\r\x80\xFF", 10) + std::string(1, '\0') + "end";
  EXPECT_TRUE(WriteTo(out, bytes));
  ::CloseHandle(out);
  std::ifstream in(file, std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), bytes);

  EXPECT_FALSE(WriteTo(INVALID_HANDLE_VALUE, "lost"));
  EXPECT_FALSE(WriteTo(nullptr, "lost"));
  in.close();
  fs::remove_all(folder);
}

TEST(PlatformWin32, ExecutableFolderAndPlainFiles) {
  wchar_t exe[MAX_PATH];
  ASSERT_GT(::GetModuleFileNameW(nullptr, exe, MAX_PATH), 0u);
  const std::wstring folder = ExecutableFolder();
  EXPECT_EQ(folder + kPathSeparator + fs::path(exe).filename().wstring(), std::wstring(exe));

  const fs::path temp = MakeTempFolder("kw-files-");
  std::ofstream(temp / "plain.ini") << "x";
  std::ofstream(temp / "hidden.ini") << "x";
  ::SetFileAttributesW((temp / "hidden.ini").wstring().c_str(), FILE_ATTRIBUTE_HIDDEN);
  fs::create_directory(temp / "folder.ini");
  const struct {
    const char* name;
    bool plain;
  } cases[] = {{"plain.ini", true},    {"hidden.ini", false}, {"folder.ini", false},
               {"missing.ini", false}, {"*.ini", true},       {"h*.ini", false}};
  for (const auto& c : cases) {
    EXPECT_EQ(PlainFileExists((temp / c.name).wstring()), c.plain) << c.name;
  }
  ::SetFileAttributesW((temp / "hidden.ini").wstring().c_str(), FILE_ATTRIBUTE_NORMAL);
  fs::remove_all(temp);
}

}  // namespace
}  // namespace kw
