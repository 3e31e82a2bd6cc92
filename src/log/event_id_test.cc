#include "log/event_id.h"

#include <gtest/gtest.h>

#include "base/error_numbers.h"

namespace kw {

// Event Viewer finds a message by the 16-bit ID: an own number at either end of that range keeps
// it, anything else shares the ID of the other failures.
TEST(EventIdTest, OwnNumbersKeepTheirIdOthersGetTwo) {
  const std::pair<int32_t, int> cases[] = {
      {kErrorBase + 570, 570},   {kErrorBase + 3, 3}, {kErrorBase + 0xFFFF, 0xFFFF},
      {kErrorBase + 0x10000, 2}, {kErrorBase + 2, 2}, {kTypeMismatch, 2},
  };
  for (const auto& [number, id] : cases)
    EXPECT_EQ(FailureEventId(Error(number, L"", L"")), id) << number - kErrorBase;
}

}  // namespace kw
