// The UCP frame of operations 01, 03, 30 and 51 (and of any other two-digit one) for any
// recipient, sender, password, message and TextLength: the frame is refused exactly as the limits
// say; the 16-bit overflow comes exactly when the length or the checksum's total passes 32,767;
// otherwise the simulated centre finds the frame's length field and checksum right and reads the
// operation's fields back, the text's IA5 hex decoding to its line codes.
#include <utility>

#include "fuzz_util.h"
#include "message/sms_message.h"
#include "sim/ucp_frame.h"
#include "ucp/sms_ucp_sender.h"

namespace kw::fuzz {
namespace {

/// The operations with their number of data fields.
constexpr std::pair<const wchar_t*, size_t> kOperations[] = {
    {L"01", 5}, {L"03", 16}, {L"30", 10}, {L"51", 32}};

/// Whether the frame overflows 16 bits, judged from the frame of the same settings without a
/// message: the text's hex digits join it (when the operation carries a text) and its length
/// field grows by their number. Both the length and the total only grow with more text.
bool Overflows(SmsUcpSender sender, SmsMessage msg, bool carries_text) {
  const std::string hex = carries_text ? ToLine(IA5Encode(msg.message)) : "";
  msg.message.clear();
  sender.text_length = INT16_MAX;
  std::wstring empty;
  if (ErrorOf([&] { empty = sender.PrepareMessage(msg); }) != 0) return true;
  std::string body = ToLine(empty.substr(1, empty.size() - 4));  // no STX, checksum, ETX
  const long long length = std::stoll(body.substr(3, 5)) + static_cast<long long>(hex.size());
  if (length > INT16_MAX) return true;
  const std::string digits = std::to_string(100'000 + length).substr(1);  // five, zero-padded
  return Sum(body.replace(3, 5, digits)) + Sum(hex) > INT16_MAX;
}

}  // namespace

void FuzzOne(const std::string& input) {
  // The input: the operation (a byte: one of the four, else two digits from the next two bytes),
  // TextLength (two bytes, high first), then recipient NUL sender NUL password NUL message.
  const auto head = [&input](size_t at) { return ByteAt(input, at); };
  std::string rest = input.substr(std::min<size_t>(input.size(), 5));
  const std::wstring type =
      head(0) % 5 < 4 ? std::wstring(kOperations[head(0) % 5].first)
                      : std::wstring{wchar_t(L'0' + head(1) % 10), wchar_t(L'0' + head(2) % 10)};
  const std::wstring to = WideText(NextField(rest)), from = WideText(NextField(rest)),
                     password = WideText(NextField(rest));
  const SmsMessage msg{L"", to, WideText(rest), {}, {}};
  SmsUcpSender sender{type, L"", password, 0, from, nullptr};
  sender.text_length = static_cast<int16_t>(head(3) << 8 | head(4));
  size_t fields = 0;  // an operation without a template carries no fields at all
  for (const auto& [known, count] : kOperations) fields = type == known ? count : fields;

  // Operations 01, 03 and 30 carry numbers of at most 16 characters; 51 and unknown ones any.
  const bool short_numbers = type == L"01" || type == L"03" || type == L"30";
  const size_t length = msg.message.size();
  const int refusal = length >= 32767                                           ? kEncodingFailed
                      : 2 * static_cast<long long>(length) > sender.text_length ? kMessageTooLong
                      : short_numbers && msg.parsed_recipient.size() > 16       ? kRecipientTooLong
                      : short_numbers && sender.sender_number.size() > 16       ? kSenderTooLong
                      : Overflows(sender, msg, fields != 0)                     ? kOverflow
                                                                                : 0;
  std::wstring frame;
  Require(ErrorOf([&] { frame = sender.PrepareMessage(msg); }) == refusal,
          "the frame is refused exactly as the limits say");
  if (refusal != 0) return;

  Require(frame.size() >= 4 && frame.front() == 0x02 && frame.back() == 0x03, "STX to ETX");
  sim::UcpFrame read;
  std::string note;
  Require(sim::ReadUcpFrame(ToLine(frame.substr(1, frame.size() - 2)), read, note) &&
              read.length_ok && read.checksum_ok && read.operation == ToLine(type),
          "the centre reads an operation frame with a good length and checksum");
  // Fields are cut at "/": only numbers and a password without one stand where they belong.
  const std::wstring all = msg.parsed_recipient + sender.sender_number + sender.authentication;
  if (fields == 0 || all.find(L'/') != std::wstring::npos) return;
  const bool carries_password = type == L"03" || type == L"51";
  Require(read.field_count == fields && read.recipient == ToLine(msg.parsed_recipient) &&
              read.sender == ToLine(sender.sender_number) &&
              read.auth == (carries_password ? ToLine(sender.authentication) : ""),
          "each field stands where the operation has it");
  Require(read.text_is_hex && read.text == ToLine(msg.message),
          "the text's IA5 hex decodes back to its line codes");
}

}  // namespace kw::fuzz
