#ifndef KW_SENDING_SMS_SENDER_H_
#define KW_SENDING_SMS_SENDER_H_

#include <functional>
#include <memory>

#include "config/sms_settings.h"
#include "link/modem.h"
#include "message/sms_message.h"

namespace kw {

/// The conductor of a send: cleans the recipient, brings the link up, picks the protocol and
/// takes the link down on every way out.
class SmsSender {
 public:
  /// Shared with Main; only read here.
  std::shared_ptr<SmsSettings> settings;

  /// Progress events; nothing in the program listens, so an unset one does nothing.
  std::function<void()> on_before_connect;
  std::function<void()> on_connect;
  std::function<void()> on_before_login;
  std::function<void()> on_before_send;
  std::function<void(SmsMessage&)> on_message_sent;

  /// Sends the message; a normal return means it went out. Every failure is raised after the
  /// link has been taken down.
  void SendSms(SmsMessage& msg);
  /// Brings the link up unless it is up; raises 582 or 580 when it can't.
  void Connect();

  /// The link; made on first use. Exposed for tests that look at it after a send.
  Modem& Link();

 private:
  void SendTap(SmsMessage& msg);
  void SendUcp(SmsMessage& msg);
  /// Hangs up only if the link is up, and closes the port whether it is open or not.
  void TakeLinkDown();

  std::unique_ptr<Modem> modem_;
};

}  // namespace kw

#endif  // KW_SENDING_SMS_SENDER_H_
