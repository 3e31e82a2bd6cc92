#include "base/error.h"

#include <gtest/gtest.h>

namespace kw {

TEST(ErrorTest, ANumberedErrorKeepsTheCauseOfTheOneItStandsFor) {
  const Error inner = Error(2, L"", L"").WithCause(Cause::kMissing, L"/dev/ttyX", L"No such file");
  const Error outer = AppError(520, L"Error opening com port.").CausedBy(inner);
  EXPECT_EQ(outer.cause(), Cause::kMissing);
  EXPECT_EQ(outer.CauseText(), L"/dev/ttyX: No such file");
  EXPECT_EQ(Error(1, L"", L"").WithCause(Cause::kOther, L"", L"why").CauseText(), L"why");
  EXPECT_EQ(Error(1, L"", L"").WithCause(Cause::kOther, L"what", L"").CauseText(), L"what");
}

}  // namespace kw
