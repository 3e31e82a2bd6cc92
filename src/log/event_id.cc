#include "log/event_id.h"

#include <cstdint>

namespace kw {

int FailureEventId(const Error& error) {
  // An event ID has 16 bits, and 1 and 2 are taken by the records that carry no number.
  const int64_t n = static_cast<int64_t>(error.number()) - kErrorBase;
  return n >= 3 && n <= 0xFFFF ? static_cast<int>(n) : kOtherFailureEventId;
}

}  // namespace kw
