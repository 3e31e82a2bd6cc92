#include "os/bounded_write-posix.h"

#include <gtest/gtest.h>

#include "os/interrupt.h"

namespace kw {
namespace {

/// The far side of a descriptor under a virtual clock: it has room for `room` bytes, and its
/// reader, from `wakes_ms` on (never if negative), makes room for everything.
struct VirtualReader {
  VirtualReader(size_t room_bytes = 0, int64_t wake_ms = -1, int fail_errno = 0, int eintrs = 0)
      : room(room_bytes), wakes_ms(wake_ms), write_errno(fail_errno), poll_eintr(eintrs) {}

  size_t room;
  int64_t wakes_ms;
  int write_errno;  ///< what each write fails with, 0 for none
  int poll_eintr;   ///< how many polls a signal cuts short after 100 ms
  int64_t now_ms = 0;
  std::string pieces;  ///< each send's flags and ":", each write's size that went and "+"

  bool Wakes(int64_t by_ms) const { return wakes_ms >= 0 && wakes_ms <= by_ms; }

  WriteCalls Calls() {
    WriteCalls calls;
    calls.now_ms = [this] { return now_ms; };
    calls.poll = [this](pollfd* fd, nfds_t, int timeout_ms) {
      if (poll_eintr > 0) return --poll_eintr, now_ms += 100, errno = EINTR, -1;
      if (room == 0 && Wakes(now_ms + timeout_ms)) now_ms = std::max(now_ms, wakes_ms);
      if (room == 0 && Wakes(now_ms)) room = 1 << 20;
      if (room == 0) return now_ms += timeout_ms, 0;
      fd->revents = POLLOUT;
      return 1;
    };
    calls.write = [this](int, const void*, size_t size) -> ssize_t {
      if (write_errno != 0) return errno = write_errno, -1;
      if (room == 0) return errno = EAGAIN, -1;
      const size_t taken = std::min(size, room);
      room -= taken;
      pieces += std::to_string(taken) + "+";
      return static_cast<ssize_t>(taken);
    };
    calls.send = [this, write = calls.write](int fd, const void* data, size_t size, int flags) {
      pieces += std::to_string(flags) + ":";
      return write(fd, data, size);
    };
    return calls;
  }
};

TEST(BoundedWrite, WaitsForRoomOnlyWithinTheBudgetThatAllWritesShare) {
  const std::string dont_wait = std::to_string(MSG_DONTWAIT | MSG_NOSIGNAL) + ":";
  const size_t all = 1 << 20;
  const struct {
    Sink sink;
    VirtualReader reader;
    bool stop;
    std::string want;  // of the 3000 ms budget
  } cases[] = {
      {Sink::kFile, {all}, false, "sent in 0 ms: 10000+"},
      {Sink::kStream, {all}, false, "sent in 0 ms: 4096+4096+1808+"},
      {Sink::kStream, {5000}, false, "not sent in 3000 ms: 4096+904+, dropped"},
      {Sink::kStream, {0, 1000}, false, "sent in 1000 ms: 4096+4096+1808+"},
      {Sink::kStream, {0, 3001}, false, "not sent in 3000 ms: , dropped"},
      {Sink::kStream, {0, 1000, 0, 2}, false, "sent in 1000 ms: 4096+4096+1808+"},  // signals
      {Sink::kStream, {0, 1000}, true, "not sent in 0 ms: , dropped"},
      {Sink::kStream, {all, -1, EPIPE}, false, "not sent in 0 ms: "},
      {Sink::kSocket, {0, 500}, false, "sent in 500 ms: " + dont_wait + dont_wait + "10000+"},
  };
  for (const auto& c : cases) {
    VirtualReader reader = c.reader;
    if (c.stop) NoteInterruptRequest(L"SIGTERM");
    OutputBudget budget(3000);
    const bool sent = BoundedWrite(7, c.sink, std::string(10000, 'x'), budget, reader.Calls());
    ForgetInterruptRequest();
    EXPECT_EQ((sent ? "sent in " : "not sent in ") + std::to_string(reader.now_ms) +
                  " ms: " + reader.pieces + (budget.TakeDropped() ? ", dropped" : ""),
              c.want);
    EXPECT_FALSE(budget.TakeDropped());  // said once
    EXPECT_EQ(budget.WaitLimitMs(), 3000 - reader.now_ms);
  }

  // Once the budget is spent, output goes on where there is room, and waits no more.
  VirtualReader reader{0, 4000};  // awake after the budget
  OutputBudget budget(3000);
  EXPECT_FALSE(BoundedWrite(7, Sink::kStream, "first", budget, reader.Calls()));
  EXPECT_FALSE(BoundedWrite(7, Sink::kStream, "second", budget, reader.Calls()));
  EXPECT_EQ(reader.now_ms, 3000);
  reader.room = 100;
  EXPECT_TRUE(BoundedWrite(7, Sink::kStream, "third", budget, reader.Calls()));
  EXPECT_EQ(reader.pieces, "5+");
}

}  // namespace
}  // namespace kw
