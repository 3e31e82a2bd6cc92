#include <gtest/gtest.h>
#include <windows.h>

#include <thread>

#include "os/interrupt.h"
#include "os/system_runtime.h"
#include "unit_util.h"

// Nothing wakes a wait when a console event comes (its handler runs on a thread of its own), so
// the waits must look for a request to stop while they last: a sleep, and the waits for an event,
// which last to the next whole second.
TEST(Win32Runtime, WaitsEndSoonAfterARequestToStop) {
  auto runtime = kw::NewSystemRuntime(nullptr);
  for (const int sleep_ms : {5000, 0}) {
    const int64_t start = ::GetTickCount64();
    std::thread handler([] { ::Sleep(50), kw::NoteInterruptRequest(L"Ctrl+C"); });
    EXPECT_EQ(kw::Raised([&] {
                runtime->Sleep(sleep_ms);
                runtime->WaitForEvent();
                runtime->WaitForEvent();
              }),
              18);
    handler.join();
    kw::ForgetInterruptRequest();
    EXPECT_LT(int64_t(::GetTickCount64()) - start, 400);
  }
}
