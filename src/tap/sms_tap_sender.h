#ifndef KW_TAP_SMS_TAP_SENDER_H_
#define KW_TAP_SMS_TAP_SENDER_H_

#include <string>

#include "link/modem.h"
#include "message/sms_message.h"

namespace kw {

/// The client side of the TAP dialogue: login, then one block.
class SmsTapSender {
 public:
  /// The link, lent by SmsSender.
  Modem* modem = nullptr;
  /// True once the provider acknowledged the login.
  bool authenticated = false;

  /// Waits for the provider's prompt and logs in with the password; raises on every failure.
  void Login(const std::wstring& authentication = L"");
  /// Sends the message in one block, up to five times; a normal return means accepted.
  void Send(const SmsMessage& msg);

  /// The block's three checksum characters: the sum's bits 11-8, 7-4, 3-0, each plus 0x30.
  static std::wstring TapChecksum(const std::wstring& text);
};

}  // namespace kw

#endif  // KW_TAP_SMS_TAP_SENDER_H_
