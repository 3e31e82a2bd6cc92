#ifndef KW_LOG_EVENT_ID_H_
#define KW_LOG_EVENT_ID_H_

#include "base/error.h"

namespace kw {

/// The event ID of the record of a sent message.
inline constexpr int kSentEventId = 1;

/// The event ID of the record of a failure that has no number of the program's own.
inline constexpr int kOtherFailureEventId = 2;

/// The event ID of an error's record: n for the program's own error "[n]" (the numbers of
/// doc/errors.tsv, which the Windows message table carries), else kOtherFailureEventId.
int FailureEventId(const Error& error);

}  // namespace kw

#endif  // KW_LOG_EVENT_ID_H_
