// The UCP frame of operations 01, 03, 30 and 51 (and of any other two-digit one) for any
// recipient, sender, password, message and TextLength: the frame is refused exactly as the limits
// say; the 16-bit overflow comes exactly when the length or the checksum's total passes 32,767;
// otherwise the five-digit length field equals the frame's length, the two checksum digits are
// the low byte of the sum of the frame's bytes, recomputed here, and the simulated centre reads
// the operation's fields back, the text's IA5 hex decoding to its line codes.
#include <algorithm>
#include <cstdint>
#include <string>

#include "base/error.h"
#include "base/error_numbers.h"
#include "base/text.h"
#include "message/sms_message.h"
#include "require.h"
#include "sim/ucp_frame.h"
#include "ucp/sms_ucp_sender.h"
#include "wide_input.h"

using kw::fuzz::Require;

namespace {

/// The operations with their number of data fields.
struct Operation {
  const wchar_t* type;
  size_t fields;
};
constexpr Operation kOperations[] = {{L"01", 5}, {L"03", 16}, {L"30", 10}, {L"51", 32}};

/// The frame, or the number of the error raised: n for the program's own error n, else the raw
/// number (the overflow).
int Build(kw::SmsUcpSender& sender, const kw::SmsMessage& msg, std::wstring& frame) {
  try {
    frame = sender.PrepareMessage(msg);
    return 0;
  } catch (const kw::Error& e) {
    const long long n = static_cast<long long>(e.number()) - kw::kErrorBase;
    return n >= 0 && n < 0x10000 ? static_cast<int>(n) : e.number();
  }
}

constexpr char kHex[] = "0123456789ABCDEF";

/// The sum of the bytes.
long long Sum(const std::string& bytes) {
  long long sum = 0;
  for (unsigned char byte : bytes) sum += byte;
  return sum;
}

/// The five digits of a length.
std::string Digits5(long long length) {
  std::string digits = std::to_string(length);
  return std::string(digits.size() < 5 ? 5 - digits.size() : 0, '0') + digits;
}

/// Whether the frame of this message overflows, judged from the frame that the same settings give
/// for an empty message: the text's hex digits join it (when the operation carries a text) and its
/// length field grows by their number.
bool Overflows(kw::SmsUcpSender sender, kw::SmsMessage msg, bool carries_text) {
  const std::string line = kw::ToLine(carries_text ? msg.message : L"");
  msg.message.clear();
  sender.text_length = INT16_MAX;
  std::wstring empty;
  // With more text, both the length and the total only grow (two digits add at least 0x60, a
  // length field's digits change their sum by at most 45).
  if (Build(sender, msg, empty) != 0) return true;
  const std::string body = kw::ToLine(empty.substr(1, empty.size() - 4));  // no STX, checksum, ETX
  const long long length = std::stoll(body.substr(3, 5)) + 2 * static_cast<long long>(line.size());
  if (length > INT16_MAX) return true;
  long long total = Sum(body) - Sum(body.substr(3, 5)) + Sum(Digits5(length));
  for (unsigned char byte : line) total += kHex[byte >> 4] + kHex[byte & 15];
  return total > INT16_MAX;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The input: the operation (a byte: one of the four, else two digits from the next two bytes),
  // TextLength (two bytes, high first), then recipient NUL sender NUL password NUL message.
  uint8_t head[5] = {};
  std::copy(data, data + std::min<size_t>(size, 5), head);
  std::string rest(reinterpret_cast<const char*>(data), size);
  rest.erase(0, 5);
  kw::SmsUcpSender sender;
  const int pick = head[0] % 5;
  sender.operation_type = pick < 4 ? std::wstring(kOperations[pick].type)
                                   : std::wstring{static_cast<wchar_t>(L'0' + head[1] % 10),
                                                  static_cast<wchar_t>(L'0' + head[2] % 10)};
  sender.text_length = static_cast<int16_t>(head[3] << 8 | head[4]);
  kw::SmsMessage msg;
  msg.parsed_recipient = kw::fuzz::WideText(kw::fuzz::NextField(rest));
  sender.sender_number = kw::fuzz::WideText(kw::fuzz::NextField(rest));
  sender.authentication = kw::fuzz::WideText(kw::fuzz::NextField(rest));
  msg.message = kw::fuzz::WideText(rest);

  std::wstring frame;
  const int outcome = Build(sender, msg, frame);
  // An operation without a template carries no fields at all.
  const std::wstring& type = sender.operation_type;
  const Operation* known = nullptr;
  for (const Operation& row : kOperations) known = type == row.type ? &row : known;
  // Operations 01, 03 and 30 carry numbers of at most 16 characters; 51 and unknown ones any.
  const bool numbers_limited =
      (type == L"01" || type == L"03" || type == L"30") &&
      (msg.parsed_recipient.size() > 16 || sender.sender_number.size() > 16);
  int refusal = 0;
  if (msg.message.size() >= 32767) {
    refusal = kw::kEncodingFailed;
  } else if (2 * static_cast<long long>(msg.message.size()) > sender.text_length) {
    refusal = kw::kMessageTooLong;
  } else if (numbers_limited) {
    refusal = msg.parsed_recipient.size() > 16 ? kw::kRecipientTooLong : kw::kSenderTooLong;
  } else if (Overflows(sender, msg, known != nullptr)) {
    refusal = kw::kOverflow;
  }
  Require(outcome == refusal, "the frame is refused exactly as the limits say");
  if (outcome != 0) return 0;

  // STX, the body, two checksum digits, ETX: the length counts the body and the checksum.
  Require(frame.size() >= 4 && frame.front() == 0x02 && frame.back() == 0x03, "STX to ETX");
  const std::string body = kw::ToLine(frame.substr(1, frame.size() - 2));
  const std::string length = body.substr(3, 5);
  Require(body.compare(0, 3, "01/") == 0 &&
              length.find_first_not_of("0123456789") == std::string::npos &&
              std::stoul(length) == body.size(),
          "the five-digit length field equals the frame's length");
  const long long sum = Sum(body.substr(0, body.size() - 2));
  Require(body.compare(body.size() - 2, 2, std::string{kHex[sum >> 4 & 15], kHex[sum & 15]}) == 0,
          "the checksum is the low byte of the frame's sum in two upper-case hex digits");

  kw::sim::UcpFrame read;
  std::string note;
  Require(kw::sim::ReadUcpFrame(body, read, note) && read.length_ok && read.checksum_ok &&
              read.operation == kw::ToLine(sender.operation_type),
          "the centre reads an operation frame with a good length and checksum");
  // Fields are cut at "/": only numbers and a password without one stand where they belong.
  const std::wstring fields = msg.parsed_recipient + sender.sender_number + sender.authentication;
  if (!known || fields.find(L'/') != std::wstring::npos) return 0;
  const bool carries_password = type == L"03" || type == L"51";
  Require(read.field_count == known->fields && read.recipient == kw::ToLine(msg.parsed_recipient) &&
              read.sender == kw::ToLine(sender.sender_number) &&
              read.auth == (carries_password ? kw::ToLine(sender.authentication) : ""),
          "each field stands where the operation has it");
  Require(read.text_is_hex && read.text == kw::ToLine(msg.message),
          "the text's IA5 hex decodes back to its line codes");
  return 0;
}
