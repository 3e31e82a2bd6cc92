#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "base/text.h"
#include "frontend/command_line.h"
#include "frontend/string_util.h"
#include "os/platform.h"

namespace kw {
namespace {

namespace fs = std::filesystem;

/// A path as the wide text that the platform functions take.
std::wstring Wide(const fs::path& path) { return FromLocale(path.string()); }

TEST(Platform, ExecutableFolderAndPlainFileExists) {
  const fs::path exe = fs::canonical("/proc/self/exe");  // realpath(3)
  const fs::path folder = exe.parent_path(), before = fs::current_path();
  fs::current_path("/");  // a folder taken from the working folder would show
  EXPECT_EQ(ExecutableFolder(), Wide(folder));
  fs::current_path(before);

  EXPECT_TRUE(PlainFileExists(Wide(exe)));
  for (const fs::path& path : {folder, folder / "missing.ini", fs::path("/dev/null")}) {
    EXPECT_FALSE(PlainFileExists(Wide(path))) << path;
  }
}

/// Runs WriteStandardOutput with standard output on the descriptor.
bool WriteTo(int fd, const std::string& bytes) {
  const int saved = dup(STDOUT_FILENO);
  dup2(fd, STDOUT_FILENO);
  const bool ok = WriteStandardOutput(bytes);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  return ok;
}

TEST(WriteStandardOutput, WritesEverythingThroughAFullNonBlockingPipeElseFails) {
  std::string bytes(300000, '\0');  // far more than a pipe holds
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>('a' + i % 23);
  int fds[2];
  ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
  fcntl(fds[1], F_SETFL, O_NONBLOCK);
  std::string received;
  std::thread reader([&] {
    char chunk[4096];
    for (ssize_t n; (n = read(fds[0], chunk, sizeof chunk)) > 0;) received.append(chunk, n);
  });
  EXPECT_TRUE(WriteTo(fds[1], bytes));
  close(fds[1]);
  reader.join();
  close(fds[0]);
  EXPECT_TRUE(received == bytes) << "received " << received.size() << " of " << bytes.size();

  const int read_only = open("/dev/null", O_RDONLY | O_CLOEXEC);
  EXPECT_FALSE(WriteTo(read_only, "lost"));
  close(read_only);
}

TEST(RawCommandLine, SplitsBackIntoThisProcessArguments) {
  std::ifstream in("/proc/self/cmdline", std::ios::binary);
  std::vector<std::wstring> expected;  // quotes at the ends stripped, as Main reads them
  for (std::string arg; std::getline(in, arg, '\0');) {
    expected.push_back(StripChar(FromLocale(arg), L"\""));
  }
  expected.erase(expected.begin());  // the program's own name
  std::vector<std::wstring> split = SplitCommandLine(RawCommandLine());
  for (std::wstring& arg : split) arg = StripChar(arg, L"\"");
  EXPECT_EQ(split, expected);
}

}  // namespace
}  // namespace kw
