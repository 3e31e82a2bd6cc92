#include <gtest/gtest.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <functional>
#include <regex>

#include "base/text.h"
#include "os/system_runtime.h"

namespace kw {
namespace {

int64_t MonotonicNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000000LL + now.tv_nsec;
}

// A source that counts its deliveries and runs a scripted action in them.
struct ScriptedSource : EventSource {
  void DeliverPending() override {
    ++deliveries;
    if (on_deliver) on_deliver();
  }
  int WaitDescriptor() const override { return fd; }
  short WaitEvents() const override { return POLLIN; }
  int WaitLimitMs() const override { return limit_ms; }

  int deliveries = 0;
  std::function<void()> on_deliver;
  int fd = -1;
  int limit_ms = -1;
};

TEST(PosixRuntime, DoEventsDeliversOnceToTheSourcesRegisteredAtItsStart) {
  auto runtime = NewSystemRuntime(nullptr);
  ScriptedSource remover, removed, adder, added;
  remover.on_deliver = [&] { runtime->RemoveSource(&removed); };
  adder.on_deliver = [&] { runtime->AddSource(&added); };
  for (ScriptedSource* s : {&remover, &removed, &adder}) runtime->AddSource(s);
  runtime->AddSource(&remover);  // a second registration changes nothing

  runtime->DoEvents();
  EXPECT_EQ(remover.deliveries, 1);
  EXPECT_EQ(removed.deliveries, 0);  // removed by an earlier handler in the same round
  EXPECT_EQ(adder.deliveries, 1);
  EXPECT_EQ(added.deliveries, 0);  // came in during the round

  runtime->DoEvents();
  EXPECT_EQ(added.deliveries, 1);
  EXPECT_EQ(removed.deliveries, 0);
}

TEST(PosixRuntime, WaitForEventKeepsToTheSmallestPositiveLimit) {
  auto runtime = NewSystemRuntime(nullptr);
  ScriptedSource none, zero, longer, shorter;
  zero.limit_ms = 0;  // not positive: no limit
  longer.limit_ms = 400;
  shorter.limit_ms = 40;
  for (ScriptedSource* s : {&none, &zero, &longer, &shorter}) runtime->AddSource(s);

  const int64_t start = MonotonicNs();
  const int64_t second = (start / 1000000000 + 1) * 1000000000;
  runtime->WaitForEvent();
  const int64_t end = MonotonicNs();
  EXPECT_GE(end, std::min(second, start + 40000000));
  EXPECT_LT(end, start + 300000000);
  EXPECT_EQ(shorter.deliveries, 0);  // waiting delivers nothing
}

TEST(PosixRuntime, WaitForEventWakesOnAReadyDescriptorAndSleepDoesNot) {
  auto runtime = NewSystemRuntime(nullptr);
  int pipe_fds[2];
  ASSERT_EQ(pipe(pipe_fds), 0);
  ScriptedSource source;
  source.fd = pipe_fds[0];
  runtime->AddSource(&source);
  ASSERT_EQ(write(pipe_fds[1], "x", 1), 1);

  // Far enough from a second boundary that only the descriptor can end the wait early.
  if (1000000000 - MonotonicNs() % 1000000000 < 100000000) runtime->Sleep(120);
  const int64_t second = (MonotonicNs() / 1000000000 + 1) * 1000000000;
  runtime->WaitForEvent();
  EXPECT_LT(MonotonicNs(), second);

  const int64_t start = MonotonicNs();
  runtime->Sleep(30);
  EXPECT_GE(MonotonicNs() - start, 30000000);
  EXPECT_EQ(source.deliveries, 0);
  close(pipe_fds[0]);
  close(pipe_fds[1]);
}

TEST(PosixRuntime, NowTextIsTheLocalesDateAndTime) {
  const std::string saved = std::setlocale(LC_TIME, nullptr);
  std::setlocale(LC_TIME, "C");
  const std::string text = ToLocale(NewSystemRuntime(nullptr)->NowText());
  std::setlocale(LC_TIME, saved.c_str());
  EXPECT_TRUE(std::regex_match(text, std::regex(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d)"))) << text;
}

}  // namespace
}  // namespace kw
