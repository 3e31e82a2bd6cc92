#include "os/port_lock-posix.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>

#include "unit_util.h"

namespace kw {

TEST(PortLock, TakesThroughASymlinkKeepsOthersOutAndRemovesOnlyItsOwnOrAStaleOne) {
  EXPECT_EQ(PortLockName("/dev/ttyUSB0") + PortLockName("/dev/pts/3") + PortLockName("/tmp/a/b"),
            "LCK..ttyUSB0LCK..pts_3LCK..tmp_a_b");  // a "/" can't stand in a file name
  EXPECT_EQ(PortLockText(4242) + PortLockText(2147483647), "      4242\n2147483647\n");
  TempFolder folder;
  const std::string locks = folder.path.string(), device = locks + "/ttyKW0";
  const std::string lock_file = locks + "/" + PortLockName(device);
  std::ofstream(device) << "x";
  std::filesystem::create_symlink(device, locks + "/modem");
  PortLock lock(locks), other(locks);
  ASSERT_EQ(lock.Take(locks + "/modem"), PortLock::Result::kTaken);
  EXPECT_EQ(std::filesystem::status(lock_file).permissions(), std::filesystem::perms(0644));
  EXPECT_EQ(other.Take(device), PortLock::Result::kHeld);  // another object of this process too
  lock.Release();
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(locks), {}), 2);  // nothing left

  ASSERT_EQ(other.Take(device), PortLock::Result::kTaken);
  std::filesystem::remove(lock_file);
  std::ofstream(lock_file) << "theirs";  // a lock file that replaced ours stays
  other.Release();
  EXPECT_EQ(FileBytes(lock_file), "theirs");

  // Held: by a live process (in either form), or empty and fresh (not yet written). Taken: of a
  // process that is gone (no process has the id pid_max), of our own id (left by an earlier
  // process), old and without an id, with more than an id, or with one that no process can have
  // (cut to 32 bits, 4294967297 would read as 1, which lives for ever). Files that are not empty
  // are made 100 seconds old.
  const int gone = std::stoi(FileBytes("/proc/sys/kernel/pid_max"));
  std::string taken;
  for (const std::string& text :
       {PortLockText(getppid()), std::to_string(getppid()) + "\n", std::string(),
        PortLockText(gone), PortLockText(getpid()), std::string("\n"), std::string("abc\n"),
        std::string("1 x\n"), PortLockText(0), PortLockText(-1), std::string("4294967297\n")}) {
    std::ofstream(lock_file) << text;
    std::filesystem::last_write_time(lock_file, std::filesystem::file_time_type::clock::now() -
                                                    std::chrono::seconds(text.empty() ? 0 : 100));
    taken += other.Take(device) == PortLock::Result::kTaken ? 'T' : 'H';
    EXPECT_EQ(FileBytes(lock_file), taken.back() == 'T' ? PortLockText(getpid()) : text);
    other.Release();
  }
  EXPECT_EQ(taken, "HHHTTTTTTTT");
}

}  // namespace kw
