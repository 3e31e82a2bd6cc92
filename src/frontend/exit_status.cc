#include "frontend/exit_status.h"

#include "frontend/error_statuses.h"

namespace kw {
namespace {

/// The status of the table's first row that fits the error; kExitSoftware for none.
int RowStatus(const Error& error) {
  for (const ErrorStatusRow& row : kErrorStatusRows) {
    if (row.number == error.number() &&
        (row.description == nullptr || error.description() == row.description)) {
      return row.status;
    }
  }
  return kExitSoftware;
}

}  // namespace

int ExitStatusFor(const Error& error) {
  const int by_row = RowStatus(error);
  switch (error.cause()) {
    case Cause::kMissing:
    case Cause::kNotAPort:
      // The device of a port; an ini that is missing or no file is the configuration's fault.
      return by_row == kExitConfiguration ? by_row : kExitNoDevice;
    case Cause::kNoPermission:
      return kExitNoPermission;
    case Cause::kBusy:
    case Cause::kRefused:
    case Cause::kTimedOut:
      return kExitTemporary;
    case Cause::kNameUnknown:
    case Cause::kBadAddress:
      return kExitConfiguration;
    case Cause::kNone:
    case Cause::kOther:
      break;
  }
  return by_row;
}

}  // namespace kw
