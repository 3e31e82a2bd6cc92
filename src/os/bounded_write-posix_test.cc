#include "os/bounded_write-posix.h"

#include <gtest/gtest.h>

#include "os/interrupt.h"

namespace kw {
namespace {

/// The far side of a descriptor under a virtual clock: it has room for `room` bytes, and its
/// reader, from `wakes_ms` on (never if negative), makes room for everything.
struct VirtualReader {
  int64_t now_ms = 0;
  size_t room = 0;
  int64_t wakes_ms = -1;
  int write_errno = 0;     ///< what each write fails with, 0 for none
  int poll_eintr = 0;      ///< how many polls a signal cuts short after 100 ms
  std::string pieces;      ///< the size of each write that went, "+" after each
  std::string send_flags;  ///< the flags of each send

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
      send_flags += std::to_string(flags) + " ";
      return write(fd, data, size);
    };
    return calls;
  }
};

TEST(BoundedWrite, WaitsForRoomOnlyWithinTheBudgetThatAllWritesShare) {
  const std::string dont_wait = std::to_string(MSG_DONTWAIT | MSG_NOSIGNAL) + " ";
  const struct {
    const char* what;
    Sink sink;
    size_t room;
    int64_t wakes_ms;
    int write_errno, poll_eintr;
    bool stop, sent;
    int64_t took_ms;  // of the 3000 ms budget
    std::string pieces, flags;
    bool dropped;
  } cases[] = {
      {"file", Sink::kFile, 1 << 20, -1, 0, 0, false, true, 0, "10000+", "", false},
      {"pipe", Sink::kStream, 1 << 20, -1, 0, 0, false, true, 0, "4096+4096+1808+", "", false},
      {"full pipe", Sink::kStream, 5000, -1, 0, 0, false, false, 3000, "4096+904+", "", true},
      {"slow reader", Sink::kStream, 0, 1000, 0, 0, false, true, 1000, "4096+4096+1808+", "",
       false},
      {"reader too late", Sink::kStream, 0, 3001, 0, 0, false, false, 3000, "", "", true},
      {"signal", Sink::kStream, 0, 1000, 0, 2, false, true, 1000, "4096+4096+1808+", "", false},
      {"stop", Sink::kStream, 0, 1000, 0, 0, true, false, 0, "", "", true},
      {"gone", Sink::kStream, 1 << 20, -1, EPIPE, 0, false, false, 0, "", "", false},
      {"socket", Sink::kSocket, 0, 500, 0, 0, false, true, 500, "10000+", dont_wait + dont_wait,
       false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    VirtualReader reader;
    reader.room = c.room;
    reader.wakes_ms = c.wakes_ms;
    reader.write_errno = c.write_errno;
    reader.poll_eintr = c.poll_eintr;
    if (c.stop) NoteInterruptRequest(L"SIGTERM");
    OutputBudget budget(3000);
    EXPECT_EQ(BoundedWrite(7, c.sink, std::string(10000, 'x'), budget, reader.Calls()), c.sent);
    ForgetInterruptRequest();
    EXPECT_EQ(reader.now_ms, c.took_ms);
    EXPECT_EQ(reader.pieces, c.pieces);
    EXPECT_EQ(reader.send_flags, c.flags);
    EXPECT_EQ(budget.TakeDropped(), c.dropped);
    EXPECT_FALSE(budget.TakeDropped());  // said once
    EXPECT_EQ(budget.WaitLimitMs(), 3000 - c.took_ms);
  }

  // Once the budget is spent, output goes on where there is room, and waits no more.
  VirtualReader reader;
  OutputBudget budget(3000);
  EXPECT_FALSE(BoundedWrite(7, Sink::kStream, "first", budget, reader.Calls()));
  reader.wakes_ms = 4000;
  EXPECT_FALSE(BoundedWrite(7, Sink::kStream, "second", budget, reader.Calls()));
  EXPECT_EQ(reader.now_ms, 3000);
  reader.room = 100;
  EXPECT_TRUE(BoundedWrite(7, Sink::kStream, "third", budget, reader.Calls()));
  EXPECT_EQ(reader.pieces, "5+");
}

}  // namespace
}  // namespace kw
