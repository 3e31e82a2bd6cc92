#include "system_log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <random>
#include <string>

#include "os/platform.h"

namespace kw {
namespace {

TEST(WriteEventLog, RecordsReachTheSystemLogger) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to start a system logger on /dev/log";
  SystemLogCapture log;
  if (log.state() == SystemLogCapture::State::kUnavailable) GTEST_SKIP() << log.reason();
  ASSERT_EQ(log.state(), SystemLogCapture::State::kReady) << log.reason();

  struct Record {
    int eventType;
    const char* severity;
  };
  const std::string run = std::to_string(getpid()) + "-" + std::to_string(std::random_device()());
  for (const Record& record : {Record{1, "err"}, Record{4, "info"}}) {
    const std::string marker = "kw-event-" + run + "-" + record.severity;
    WriteEventLog(L"Dialing  failed " + std::wstring(marker.begin(), marker.end()),
                  record.eventType);
    std::string line;
    ASSERT_TRUE(log.WaitForLine(marker, 5000, &line)) << "no record of event " << record.eventType;
    EXPECT_NE(line.find("Kestrawind"), std::string::npos) << line;
    EXPECT_NE(line.find("Dialing  failed " + marker), std::string::npos) << line;
    if (log.OwnFormat()) {
      // Our logger writes "TAG SEVERITY MESSAGE", the tag being ident[pid]:.
      const std::string head =
          "Kestrawind[" + std::to_string(getpid()) + "]: " + record.severity + " ";
      EXPECT_EQ(line.compare(0, head.size(), head), 0) << line;
    }
  }
}

}  // namespace
}  // namespace kw
