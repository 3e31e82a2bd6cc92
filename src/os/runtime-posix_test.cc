#include "os/runtime-posix.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <vector>

namespace kw {
namespace {

/// The monotonic clock that the runtime waits by, in milliseconds.
int64_t NowMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

/// A source that counts its deliveries and runs a scripted action in them.
struct ScriptedSource : PollSource {
  ScriptedSource(int descriptor = -1, int limit = -1) : fd(descriptor), limit_ms(limit) {}
  void DeliverPending() override { ++deliveries, on_deliver(); }
  int WaitDescriptor() const override { return fd; }
  short WaitEvents() const override { return POLLIN; }
  int WaitLimitMs() const override { return limit_ms; }
  int fd, limit_ms, deliveries = 0;
  std::function<void()> on_deliver = [] {};
};

TEST(PosixRuntime, DoEventsDeliversOnceToTheSourcesRegisteredAtItsStart) {
  auto runtime = NewPollingRuntime(nullptr);
  ScriptedSource remover, removed, adder, added;
  remover.on_deliver = [&] { runtime->RemoveSource(&removed); };
  adder.on_deliver = [&] { runtime->AddSource(&added); };
  for (ScriptedSource* s : {&remover, &removed, &adder, &remover}) runtime->AddSource(s);
  runtime->DoEvents();
  runtime->DoEvents();
  // The remover, registered twice, gets one delivery a round; the removed one, gone before its
  // turn, none; the added one only from the round after the one it came in.
  EXPECT_EQ((std::vector<int>{remover.deliveries, removed.deliveries, adder.deliveries,
                              added.deliveries}),
            (std::vector<int>{2, 0, 2, 1}));
}

TEST(PosixRuntime, WaitForEventEndsAtAReadyDescriptorTheSmallestLimitOrTheNextSecond) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  ASSERT_EQ(write(fds[1], "x", 1), 1);
  const struct {
    std::vector<ScriptedSource> sources;  // a limit of 0 is none
    int64_t wait_ms;                      // -1: to the next whole second
    // A ready pipe; limits of 0, 400 and 40 ms; a pipe's write end, which never has input.
  } cases[] = {{{{fds[0]}}, 0}, {{{-1, 0}, {-1, 400}, {-1, 40}}, 40}, {{{fds[1], 0}}, -1}};
  for (const auto& c : cases) {
    auto runtime = NewPollingRuntime(nullptr);
    auto sources = c.sources;
    for (ScriptedSource& s : sources) runtime->AddPollSource(&s);
    // Far enough from a second boundary that only the case's cause can end the wait.
    if (NowMs() % 1000 > 800) runtime->Sleep(220);
    const int64_t start = NowMs();
    const int64_t end = c.wait_ms < 0 ? (start / 1000 + 1) * 1000 : start + c.wait_ms;
    runtime->WaitForEvent();
    runtime->Sleep(30);
    EXPECT_GE(NowMs(), end + 30) << c.wait_ms;
    EXPECT_LT(NowMs(), end + 130) << c.wait_ms;
    for (const ScriptedSource& s : sources) EXPECT_EQ(s.deliveries, 0);  // waits deliver nothing
  }
  for (int fd : fds) close(fd);
}

}  // namespace
}  // namespace kw
