#include "base/int16.h"

#include "base/text.h"
#include "line_fixture.h"

namespace kw {

// Halves round to the even neighbour; what the 16-bit range can't hold overflows, and a long run
// of digits never wraps.
TEST(ToInt16Test, ReadsDecimalTextOrRaises) {
  const char *bad = "[13] Kestrawind: Type mismatch", *big = "[6] Kestrawind: Overflow";
  const char* cases[][2] = {
      {"20", "20"},       {"  20\t", "20"},     {"-5", "-5"},   {"+7", "7"},     {"007", "7"},
      {"32767", "32767"}, {"-32768", "-32768"}, {"32768", big}, {"-32769", big}, {"32767.5", big},
      {"2.5", "2"},       {"3.5", "4"},         {"2.51", "3"},  {"-2.5", "-2"},  {"-3.5", "-4"},
      {"0.49", "0"},      {"1.", "1"},          {".5", "0"},    {"", bad},       {"   ", bad},
      {"abc", bad},       {"12abc", bad},       {"1e3", bad},   {".", bad},      {"-", bad},
      {"1 2", bad},       {"0x10", bad},
  };

  for (const auto& [text, want] : cases) {
    std::string got;
    const std::string outcome =
        test::Outcome([&] { got = std::to_string(ToInt16(FromLine(text))); });
    EXPECT_EQ(outcome == "ok" ? got : outcome, want) << text;
  }
  EXPECT_EQ(test::Outcome([] { ToInt16(std::wstring(20, L'9')); }), big);
}

}  // namespace kw
