#include "log/logging.h"

#include <gtest/gtest.h>

#include <regex>

#include "os/output_budget.h"

// After output was lost, the trace says so once, where it goes on; without /DEBUG it says nothing.
TEST(Logging, TheTraceNotesAGapInTheOutputOnce) {
  std::string traced;
  for (bool debug : {false, true}) {
    kw::g_debug_mode = debug;
    kw::RunOutputBudget().NoteDropped();
    testing::internal::CaptureStdout();
    kw::LogDebug(L"one");
    kw::LogDebug(L"two");
    kw::g_debug_mode = false;
    traced += testing::internal::GetCapturedStdout();
  }
  // Each line's time stamp goes, up to its tab; Windows captures the line ends as LF alone.
  EXPECT_EQ(
      std::regex_replace(traced, std::regex("[^\n]*\t|\r"), ""),
      "Output was dropped: standard output or the system log took it too slowly.\none\ntwo\n");
}
