#ifndef KW_MESSAGE_SMS_MESSAGE_H_
#define KW_MESSAGE_SMS_MESSAGE_H_

#include <chrono>
#include <string>

namespace kw {

/// The one message of a run.
class SmsMessage {
 public:
  /// The number as the user typed it.
  std::wstring Recipient;
  /// The digits of Recipient; what the protocols send.
  std::wstring ParsedRecipient;
  /// The text to send.
  std::wstring Message;
  /// Never set; keeps its zero value.
  std::chrono::system_clock::time_point DateCreated;
  /// When the transfer succeeded.
  std::chrono::system_clock::time_point DateSent;
};

}  // namespace kw

#endif  // KW_MESSAGE_SMS_MESSAGE_H_
