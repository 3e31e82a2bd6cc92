#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

#include "base/error.h"
#include "os/interrupt.h"
#include "os/system_runtime.h"

namespace kw {
namespace {

/// The tick clock that the runtime waits by, in milliseconds.
int64_t NowMs() { return static_cast<int64_t>(::GetTickCount64()); }

/// A source with a wait limit that counts its deliveries.
struct LimitedSource : EventSource {
  explicit LimitedSource(int limit) : limit_ms(limit) {}
  void DeliverPending() override { ++deliveries; }
  int WaitLimitMs() const override { return limit_ms; }
  int limit_ms, deliveries = 0;
};

TEST(Win32Runtime, WaitForEventSleepsToTheSmallestLimitOrTheNextSecond) {
  const struct {
    std::vector<int> limits;  // -1: none
    int64_t wait_ms;          // -1: to the next whole second
  } cases[] = {{{}, -1}, {{-1}, -1}, {{400, 60, -1}, 60}};
  for (const auto& c : cases) {
    auto runtime = NewSystemRuntime(nullptr);
    std::vector<LimitedSource> sources(c.limits.begin(), c.limits.end());
    for (LimitedSource& s : sources) runtime->AddSource(&s);
    // Far enough from a second boundary that only the case's cause can end the wait.
    if (NowMs() % 1000 > 800) runtime->Sleep(250);
    const int64_t start = NowMs();
    const int64_t end = c.wait_ms < 0 ? (start / 1000 + 1) * 1000 : start + c.wait_ms;
    const int64_t second = runtime->NowSeconds();
    runtime->WaitForEvent();
    // The tick clock moves in steps of up to about 16 ms.
    EXPECT_GE(NowMs(), end - 20) << c.wait_ms;
    EXPECT_LT(NowMs(), end + 150) << c.wait_ms;
    if (c.wait_ms < 0) {
      EXPECT_GT(runtime->NowSeconds(), second);
    }
    for (const LimitedSource& s : sources) EXPECT_EQ(s.deliveries, 0);  // waits deliver nothing
    runtime->DoEvents();
    for (const LimitedSource& s : sources) EXPECT_EQ(s.deliveries, 1);
  }
}

TEST(Win32Runtime, NowTextIsTheLocalDateAndTimeToTheSecond) {
  auto runtime = NewSystemRuntime(nullptr);
  const std::wstring text = runtime->NowText();
  SYSTEMTIME now;
  ::GetLocalTime(&now);
  // The default short forms hold the year and the minutes, and no milliseconds.
  EXPECT_NE(text.find(std::to_wstring(now.wYear)), std::wstring::npos) << text;
  EXPECT_NE(text.find(L':'), std::wstring::npos) << text;
  EXPECT_EQ(text.find(L'.', text.find(L':')), std::wstring::npos) << text;
}

// Nothing wakes a sleep on Windows when a console event comes (its handler runs on a thread of
// its own), so the waits must look for a request to stop while they last.
TEST(Win32Runtime, WaitsEndSoonAfterARequestToStop) {
  auto runtime = NewSystemRuntime(nullptr);
  const std::function<void()> waits[] = {[&] { runtime->Sleep(5000); },
                                         [&] { runtime->WaitForEvent(); }};
  for (const auto& wait : waits) {
    const int64_t start = NowMs();
    std::thread handler([] {
      ::Sleep(50);
      NoteInterruptRequest(L"Ctrl+C");
    });
    int32_t number = 0;
    try {
      wait();
      if (NowMs() - start < 900) wait();  // a whole-second wait may end before the request
    } catch (const Error& e) {
      number = e.number();
    }
    handler.join();
    ForgetInterruptRequest();
    EXPECT_EQ(number, 18);
    EXPECT_LT(NowMs() - start, 400);
  }
}

}  // namespace
}  // namespace kw
