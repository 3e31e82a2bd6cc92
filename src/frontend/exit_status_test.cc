#include "frontend/exit_status.h"

#include <gtest/gtest.h>

#include "base/error_numbers.h"

namespace kw {

// By cause first, then by the first row of doc/errors.tsv that fits the number and the text.
TEST(ExitStatusTest, CauseFirstThenTheTablesRowAndSoftwareForNone) {
  const Error port = AppError(kPortOpenFailed, L"Error opening com port.");
  const Error ini = AppError(kConfigFileMissing, L"Configuration file not found.");
  const struct {
    Error error;
    Cause cause;
    int status;
  } rows[] = {
      {port, Cause::kNone, 75},
      {port, Cause::kMissing, 72},
      {port, Cause::kNotAPort, 72},
      {port, Cause::kNoPermission, 77},
      {port, Cause::kBusy, 75},
      {port, Cause::kOther, 75},
      {port, Cause::kNameUnknown, 78},
      {port, Cause::kBadAddress, 78},
      {port, Cause::kRefused, 75},
      {port, Cause::kTimedOut, 75},
      {ini, Cause::kMissing, 78},
      {ini, Cause::kNotAPort, 78},
      {ini, Cause::kNoPermission, 77},
      {AppError(kTapHangUpInLogin, L"Modem hung up unexpectedly while logging in."), {}, 75},
      {AppError(kTapHangUpInLogin, L"The message was not accepted by the provider."), {}, 69},
      {AppError(kTapHangUpInLogin, L"A text that no row names."), {}, 70},
      {AppError(kUcpMessageRefused, L"Error received from provider : Authentication failure."),
       {},
       69},
      {AppError(kNoRecipient, L"No recipient specified."), {}, 64},
      {AppError(kMessageTooLong, L"Message too long"), {}, 65},
      {Error(kTypeMismatch, kProgramSource, L"Type mismatch"), {}, 78},
      {Error(kInternalError, kProgramSource, L"Internal error: x"), {}, 70},
      {AppError(kTypeMismatch, L"Type mismatch"), {}, 70},  // [13] is no row; [Unhandled][13] is
      {AppError(599, L"An error of a newer program"), {}, 70},
  };
  for (const auto& row : rows) {
    const Error error = Error(row.error).WithCause(row.cause, L"x", L"y");
    EXPECT_EQ(ExitStatusFor(error), row.status)
        << error.number() << " " << static_cast<int>(row.cause);
  }
}

}  // namespace kw
