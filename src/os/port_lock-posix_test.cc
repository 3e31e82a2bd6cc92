#include "os/port_lock-posix.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace kw {
namespace {

/// The id of a process that has ended and been reaped.
pid_t DeadPid() {
  const pid_t pid = fork();
  if (pid == 0) _exit(0);
  waitpid(pid, nullptr, 0);
  return pid;
}

/// A fresh lock folder with one device node stand-in and a symlink to it.
class PortLockTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/kw-lock-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
    std::ofstream(folder_ + "/ttyKW0").put('x');
    ASSERT_EQ(symlink((folder_ + "/ttyKW0").c_str(), (folder_ + "/modem").c_str()), 0);
    lock_path_ = folder_ + "/" + PortLockName(folder_ + "/ttyKW0");
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return in ? text.str() : "(none)";
  }
  void Write(const std::string& path, const std::string& text, time_t age_s) {
    std::ofstream(path, std::ios::binary) << text;
    const timespec times[2] = {{time(nullptr) - age_s, 0}, {time(nullptr) - age_s, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }

  std::string folder_;
  std::string lock_path_;
};

TEST(PortLockNameTest, DevicePathsBecomeFileNames) {
  const std::pair<const char*, const char*> cases[] = {
      {"/dev/ttyUSB0", "LCK..ttyUSB0"},
      {"/dev/ttyS1", "LCK..ttyS1"},
      {"/dev/pts/3", "LCK..pts_3"},  // a "/" can't stand in a file name
      {"/tmp/kw/tty", "LCK..tmp_kw_tty"},
  };
  for (const auto& [device, name] : cases) EXPECT_EQ(PortLockName(device), name) << device;
  EXPECT_EQ(PortLockText(4242), "      4242\n");
  EXPECT_EQ(PortLockText(2147483647), "2147483647\n");
}

TEST_F(PortLockTest, TakesThroughASymlinkHoldsItsIdAndRemovesItOnRelease) {
  {
    PortLock lock(folder_);
    ASSERT_EQ(lock.Take(folder_ + "/modem"), PortLock::Result::kTaken);
    EXPECT_EQ(Read(lock_path_), PortLockText(getpid()));
    struct stat info {};
    ASSERT_EQ(stat(lock_path_.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644u);
    // A second port object of this same process is kept out as well.
    PortLock second(folder_);
    EXPECT_EQ(second.Take(folder_ + "/ttyKW0"), PortLock::Result::kHeld);
    EXPECT_EQ(Read(lock_path_), PortLockText(getpid()));
    PortLock moved = std::move(lock);
    lock.Release();  // a moved-from lock holds nothing
    EXPECT_EQ(Read(lock_path_), PortLockText(getpid()));
  }  // destruction releases
  EXPECT_EQ(Read(lock_path_), "(none)");
  // Nothing else is left behind: only the device and the symlink remain.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_),
                          std::filesystem::directory_iterator()),
            2);
}

TEST_F(PortLockTest, ALiveHolderKeepsTheLockAndAStaleOneIsTaken) {
  struct Case {
    const char* name;
    std::string text;
    time_t age_s;
    PortLock::Result result;
  };
  const Case cases[] = {
      {"live process", PortLockText(getppid()), 100, PortLock::Result::kHeld},
      {"live process, old ASCII form", std::to_string(getppid()) + "\n", 100,
       PortLock::Result::kHeld},
      {"process gone", PortLockText(DeadPid()), 0, PortLock::Result::kTaken},
      {"our own id, left by an earlier process", PortLockText(getpid()), 0,
       PortLock::Result::kTaken},
      {"no id and fresh: still being written", "", 0, PortLock::Result::kHeld},
      {"no id and old", "", 100, PortLock::Result::kTaken},
      {"garbage and old", "abc\n", 100, PortLock::Result::kTaken},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Write(lock_path_, c.text, c.age_s);
    PortLock lock(folder_);
    EXPECT_EQ(lock.Take(folder_ + "/ttyKW0"), c.result);
    EXPECT_EQ(Read(lock_path_),
              c.result == PortLock::Result::kTaken ? PortLockText(getpid()) : c.text);
    lock.Release();
    EXPECT_EQ(Read(lock_path_), c.result == PortLock::Result::kTaken ? "(none)" : c.text);
    unlink(lock_path_.c_str());
  }
}

TEST_F(PortLockTest, ReleaseLeavesALockThatReplacedOursAndAMissingFolderTakesNothing) {
  PortLock lock(folder_);
  ASSERT_EQ(lock.Take(folder_ + "/ttyKW0"), PortLock::Result::kTaken);
  ASSERT_EQ(unlink(lock_path_.c_str()), 0);
  Write(lock_path_, PortLockText(getppid()), 0);
  lock.Release();
  EXPECT_EQ(Read(lock_path_), PortLockText(getppid()));

  PortLock nowhere(folder_ + "/missing");
  EXPECT_EQ(nowhere.Take(folder_ + "/ttyKW0"), PortLock::Result::kUnavailable);
}

}  // namespace
}  // namespace kw
