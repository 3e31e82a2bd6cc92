#ifndef KW_MESSAGE_SMS_MESSAGE_H_
#define KW_MESSAGE_SMS_MESSAGE_H_

#include <chrono>
#include <string>

namespace kw {

/// The one message of a run.
class SmsMessage {
 public:
  /// The number as the user typed it.
  std::wstring recipient;
  /// The digits of recipient; what the protocols send.
  std::wstring parsed_recipient;
  /// The text to send.
  std::wstring message;
  /// Never set; keeps its zero value.
  std::chrono::system_clock::time_point date_created;
  /// When the transfer succeeded.
  std::chrono::system_clock::time_point date_sent;
};

}  // namespace kw

#endif  // KW_MESSAGE_SMS_MESSAGE_H_
