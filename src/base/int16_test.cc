#include "base/int16.h"

#include <gtest/gtest.h>

#include "base/error.h"

namespace kw {
namespace {

struct Int16Case {
  const wchar_t* text;
  int expected;  // the value, or -1000000 - error number for a raised failure
};

constexpr int kConversion = -1000000 - 13;
constexpr int kOverflow = -1000000 - 6;

TEST(ToInt16Test, ReadsDecimalTextOrRaises) {
  const Int16Case cases[] = {
      {L"20", 20},        {L"  20\t", 20},      {L"-5", -5},          {L"+7", 7},
      {L"007", 7},        {L"32767", 32767},    {L"-32768", -32768},  {L"32768", kOverflow},
      {L"-32769", kOverflow}, {L"99999999999999999999", kOverflow},   {L"2.5", 2},
      {L"3.5", 4},        {L"2.51", 3},         {L"-2.5", -2},        {L"-3.5", -4},
      {L"0.49", 0},       {L"1.", 1},           {L".5", 0},           {L"32767.5", kOverflow},
      {L"", kConversion}, {L"   ", kConversion}, {L"abc", kConversion}, {L"12abc", kConversion},
      {L"1e3", kConversion}, {L".", kConversion}, {L"-", kConversion}, {L"1 2", kConversion},
      {L"0x10", kConversion},
  };
  for (const Int16Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "text '" << std::wstring(c.text) << "'");
    if (c.expected <= -1000000) {
      try {
        ToInt16(c.text);
        ADD_FAILURE() << "no failure raised";
      } catch (const Error& e) {
        EXPECT_EQ(-1000000 - e.number(), c.expected);
        EXPECT_EQ(e.source(), L"Kestrawind");
      }
    } else {
      EXPECT_EQ(ToInt16(c.text), c.expected);
    }
  }
}

TEST(ToInt16Test, FailuresCarryTheirDescriptions) {
  try {
    ToInt16(L"x");
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(e.description(), L"Type mismatch");
  }
  try {
    CheckInt16(40000);
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(e.description(), L"Overflow");
  }
}

}  // namespace
}  // namespace kw
