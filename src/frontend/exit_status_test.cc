#include "frontend/exit_status.h"

#include <gtest/gtest.h>

#include "base/error_numbers.h"

namespace kw {

// By cause first, then by the first row of doc/errors.tsv that fits the number and the text.
TEST(ExitStatusTest, CauseFirstThenTheTablesRowAndSoftwareForNone) {
  const Error port = AppError(kPortOpenFailed, L"Error opening com port.");
  const Error ini = AppError(kConfigFileMissing, L"Configuration file not found.");
  const auto hang_up = [](const wchar_t* text) { return AppError(kTapHangUpInLogin, text); };
  const struct {
    Error error;
    Cause cause;
    int status;
  } rows[] = {
      {ini, Cause::kMissing, 78},
      {ini, Cause::kNotAPort, 78},
      {hang_up(L"Modem hung up unexpectedly while logging in."), {}, 75},
      {hang_up(L"The message was not accepted by the provider."), {}, 69},
      {hang_up(L"A text that no row names."), {}, 70},
      {AppError(kUcpMessageRefused, L"Error received from provider : Authentication failure."),
       {},
       69},
      {AppError(kNoRecipient, L"No recipient specified."), {}, 64},
      {AppError(kMessageTooLong, L"Message too long"), {}, 65},
      {Error(kTypeMismatch, kProgramSource, L"Type mismatch"), {}, 78},
      {Error(kInternalError, kProgramSource, L"Internal error: x"), {}, 70},
      {AppError(kTypeMismatch, L"Type mismatch"), {}, 70}};  // [13] is no row; [Unhandled][13] is
  // The port's error by each cause in turn, kNone to kOther.
  std::string by_cause;
  for (int cause = 0; cause <= static_cast<int>(Cause::kOther); ++cause)
    by_cause +=
        std::to_string(ExitStatusFor(Error(port).WithCause(Cause(cause), L"x", L"y"))) + " ";
  EXPECT_EQ(by_cause, "75 72 72 77 75 78 75 75 78 75 ");
  for (const auto& row : rows) {
    const Error error = Error(row.error).WithCause(row.cause, L"x", L"y");
    EXPECT_EQ(ExitStatusFor(error), row.status)
        << error.number() << " " << static_cast<int>(row.cause);
  }
}

}  // namespace kw
