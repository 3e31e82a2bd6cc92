#ifndef KW_UCP_SMS_UCP_SENDER_H_
#define KW_UCP_SMS_UCP_SENDER_H_

#include <cstdint>
#include <string>

#include "link/modem.h"
#include "message/sms_message.h"

namespace kw {

/// Writes each character's line code as two upper-case hexadecimal digits ("abc" -> "616263").
/// Raises kEncodingFailed (550) for a text of 32,767 characters or more.
std::wstring IA5Encode(const std::wstring& text);

/// The UCP side of sending: builds the frame of one operation and hands it over.
class SmsUcpSender {
 public:
  std::wstring operation_type;  ///< "01", "03", "30" or "51"
  std::wstring legitimization;  ///< held, carried by no frame
  std::wstring authentication;  ///< field 3 of operations "03" and "51"
  int16_t text_length = 0;      ///< largest length of the encoded text, in hex digits
  std::wstring sender_number;   ///< field 2 of every operation
  /// The link, lent by SmsSender once the line is up.
  Modem* modem = nullptr;

  /// Builds the whole frame, STX to ETX; raises 554, 552, 553 or an overflow before any call.
  std::wstring PrepareMessage(const SmsMessage& msg);
  /// Sends the frame and reads the reply; a normal return means accepted.
  void Send(const std::wstring& msg);

  /// The frame's two checksum digits: the low eight bits of a 16-bit sum, upper-case hex.
  static std::wstring UcpChecksum(const std::wstring& text);
};

}  // namespace kw

#endif  // KW_UCP_SMS_UCP_SENDER_H_
