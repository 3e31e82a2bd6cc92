#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
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

/// A fresh folder under the temp folder, removed with everything in it at the end.
class TempFolder {
 public:
  TempFolder() {
    std::random_device random;
    do {
      path_ = fs::temp_directory_path() / ("kw-platform-" + std::to_string(random()));
    } while (!fs::create_directory(path_));
  }
  ~TempFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

TEST(ExecutableFolder, IsTheResolvedFolderOfTheBinaryWhateverTheWorkingFolder) {
  char resolved[PATH_MAX];
  ASSERT_NE(realpath("/proc/self/exe", resolved), nullptr);
  const std::wstring expected = FromLocale(fs::path(resolved).parent_path().string());

  // From another working folder, so that a folder taken from there would show.
  TempFolder elsewhere;
  const fs::path before = fs::current_path();
  fs::current_path(elsewhere.path());
  const std::wstring folder = ExecutableFolder();
  fs::current_path(before);

  EXPECT_EQ(folder, expected);
  EXPECT_TRUE(PlainFileExists(folder + kPathSeparator + FromLocale(fs::path(resolved).filename())));
}

TEST(PlainFileExists, IsTrueOnlyForARegularFile) {
  TempFolder temp;
  const fs::path file = temp.path() / "kestrawind.ini";
  std::ofstream(file) << "[Settings]\n";
  fs::create_symlink(file, temp.path() / "link.ini");
  fs::create_directory(temp.path() / "folder.ini");

  const struct {
    fs::path path;
    bool expected;
  } cases[] = {
      {file, true},
      {temp.path() / "link.ini", true},  // a link counts as what it points to
      {temp.path() / "folder.ini", false},
      {temp.path() / "missing.ini", false},
      {"/dev/null", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(PlainFileExists(FromLocale(c.path.string())), c.expected) << c.path;
  }
}

/// Points standard output at a descriptor for as long as it lives.
class StdoutRedirect {
 public:
  explicit StdoutRedirect(int fd) : saved_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    dup2(fd, STDOUT_FILENO);
  }
  ~StdoutRedirect() {
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
  }

 private:
  int saved_;
};

TEST(WriteStandardOutput, WritesEverythingThroughAFullNonBlockingPipe) {
  // Far more than a pipe holds, so the writes come back short or with EAGAIN.
  std::string bytes(300000, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>('a' + i % 23);
  int pipeFds[2];
  ASSERT_EQ(pipe2(pipeFds, O_CLOEXEC), 0);
  fcntl(pipeFds[1], F_SETFL, O_NONBLOCK);

  std::string received;
  std::thread reader([&] {
    char chunk[4096];
    for (ssize_t n; (n = read(pipeFds[0], chunk, sizeof(chunk))) > 0;) received.append(chunk, n);
  });
  bool ok = false;
  {
    StdoutRedirect redirect(pipeFds[1]);
    ok = WriteStandardOutput(bytes);
  }
  close(pipeFds[1]);
  reader.join();
  close(pipeFds[0]);

  EXPECT_TRUE(ok);
  EXPECT_TRUE(received == bytes) << "received " << received.size() << " of " << bytes.size();
}

TEST(WriteStandardOutput, FailsWhenOutputCantBeWritten) {
  const int readOnly = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(readOnly, 0);
  bool ok = true;
  {
    StdoutRedirect redirect(readOnly);
    ok = WriteStandardOutput("lost");
  }
  close(readOnly);
  EXPECT_FALSE(ok);
}

TEST(RawCommandLine, SplitsBackIntoThisProcessArguments) {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::vector<std::wstring> expected;
  for (size_t start = 0; start < bytes.size();) {
    const size_t end = bytes.find('\0', start);
    expected.push_back(FromLocale(bytes.substr(start, end - start)));
    start = end + 1;
  }
  ASSERT_FALSE(expected.empty());
  expected.erase(expected.begin());

  // Compared as Main reads them, quotes at the ends stripped, for a run by hand with odd args.
  const std::vector<std::wstring> split = SplitCommandLine(RawCommandLine());
  ASSERT_EQ(split.size(), expected.size());
  for (size_t i = 0; i < split.size(); ++i) {
    EXPECT_EQ(StripChar(split[i], L"\""), StripChar(expected[i], L"\""));
  }
}

}  // namespace
}  // namespace kw
