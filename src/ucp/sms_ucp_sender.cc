#include "ucp/sms_ucp_sender.h"

#include "base/error.h"
#include "base/error_numbers.h"
#include "base/int16.h"
#include "base/text.h"
#include "link/communication.h"
#include "log/logging.h"
#include "os/runtime.h"

namespace kw {
namespace {

/// Longest recipient or sender that operations "01", "03" and "30" carry.
constexpr size_t kMaxNumberLength = 16;

/// The pause between clearing the port's input and the first transmission, in seconds.
constexpr int32_t kPauseSeconds = 2;
/// Transmissions of the frame, and polls of the reply after each of them.
constexpr int kTransmissions = 5;
constexpr int kPolls = 5;

/// Where the answer letter and the error code stand, counted from the reply's STX.
constexpr size_t kLetterOffset = 15;
constexpr size_t kCodeOffset = 17;

struct ProviderError {
  const wchar_t* code;
  const wchar_t* text;
};

// In the order they are compared; "28" and "29" have no entry.
constexpr ProviderError kProviderErrors[] = {
    {L"01", L"Checksum error."},
    {L"02", L"Syntax error."},
    {L"03", L"Operation not supported by system."},
    {L"04", L"Operation not allowed."},
    {L"05", L"Call barring active."},
    {L"06", L"AdC invalid."},
    {L"07", L"Authentication failure."},
    {L"08", L"Legitimisation code for all calls, failure."},
    {L"09", L"GA not valid."},
    {L"10", L"Repetition not allowed."},
    {L"11", L"Legitimisation code for repetition, failure."},
    {L"12", L"Priority call not allowed."},
    {L"13", L"Legitimisation code for priority call, failure."},
    {L"14", L"Urgent message not allowed."},
    {L"15", L"Legitimisation code for urgent message, failure."},
    {L"16", L"Reverse charging not allowed."},
    {L"17", L"Legitimisation code for rev. charging, failure."},
    {L"18", L"Deferred delivery not allowed."},
    {L"19", L"New AC not valid."},
    {L"20", L"New legitimisation code not valid."},
    {L"21", L"Standard text not valid."},
    {L"22", L"Time period not valid."},
    {L"23", L"Message type not supported by system."},
    {L"24", L"Message too long."},
    {L"25", L"Requested standard text not valid."},
    {L"26", L"Message type not valid for the pager type."},
    {L"27", L"Message not found in smsc."},
    {L"30", L"Subscriber hang-up."},
    {L"31", L"Fax group not supported."},
    {L"32", L"Fax message type not supported."},
    {L"33", L"Address already in list (60 series)."},
    {L"34", L"Address not in list (60 series)."},
    {L"35", L"List full, cannot add address to list (60 series)."},
    {L"36", L"RPID already in use."},
    {L"37", L"Delivery in progress."},
    {L"38", L"Message forwarded."},
};

/// The provider's text for an error code; empty for a code without an entry.
std::wstring ProviderErrorText(const std::wstring& code) {
  for (const ProviderError& row : kProviderErrors) {
    if (code == row.code) return row.text;
  }
  return L"";
}

/// The data fields of one operation; empty for an operation without a template.
std::wstring OperationData(const std::wstring& operation, const std::wstring& recipient,
                           const std::wstring& sender, const std::wstring& authentication,
                           const std::wstring& encoded) {
  if (operation == L"01") return recipient + L"/" + sender + L"//3/" + encoded;
  if (operation == L"03") {
    return recipient + L"/" + sender + L"/" + authentication + L"/0///////////3/" + encoded;
  }
  if (operation == L"30") return recipient + L"/" + sender + L"////////" + encoded;
  if (operation == L"51") {
    return recipient + L"/" + sender + L"/" + authentication + L"///////////////3//" + encoded +
           L"////////////";
  }
  return L"";
}

/// Whether the operation carries the recipient and sender in fields of at most 16 characters.
bool LimitsNumbers(const std::wstring& operation) {
  return operation == L"01" || operation == L"03" || operation == L"30";
}

}  // namespace

std::wstring IA5Encode(const std::wstring& text) {
  static const wchar_t kHex[] = L"0123456789ABCDEF";
  try {
    // Length and index are 16-bit counters; the index passes the length at the end.
    const int16_t length = CheckInt16(static_cast<long long>(text.size()));
    CheckInt16(static_cast<long long>(length) + 1);
    std::wstring encoded;
    encoded.reserve(text.size() * 2);
    for (wchar_t c : text) {
      const unsigned char code = LineCode(c);
      encoded.push_back(kHex[code >> 4]);
      encoded.push_back(kHex[code & 0x0F]);
    }
    return encoded;
  } catch (const Error& failure) {
    throw AppError(kEncodingFailed,
                   L"Error occured in IA5Encoding of message (" + failure.description() + L")");
  }
}

std::wstring SmsUcpSender::PrepareMessage(const SmsMessage& msg) {
  LogDebug(L"Preparing UCP message.");
  const std::wstring encoded = IA5Encode(msg.message);
  // The limit counts hexadecimal digits, two for each character of the message.
  if (static_cast<long long>(encoded.size()) > text_length) {
    throw AppError(kMessageTooLong, L"Message too long. Only " + std::to_wstring(text_length) +
                                        L" allowed for this provider.");
  }
  if (LimitsNumbers(operation_type)) {
    if (msg.parsed_recipient.size() > kMaxNumberLength) {
      throw AppError(kRecipientTooLong, L"Recipient phone number too long.");
    }
    if (sender_number.size() > kMaxNumberLength) {
      throw AppError(kSenderTooLong, L"Sender phone number too long.");
    }
  }
  const std::wstring data =
      OperationData(operation_type, msg.parsed_recipient, sender_number, authentication, encoded);

  // The length counts from the transaction number through the checksum, STX and ETX aside.
  const int16_t length = CheckInt16(static_cast<long long>(data.size()) + 17);
  const std::wstring padded = L"00000" + std::to_wstring(length);
  const std::wstring length_field = padded.substr(padded.size() - 5);

  const std::wstring body = L"01/" + length_field + L"/O/" + operation_type + L"/" + data + L"/";
  return kStx + body + UcpChecksum(body) + kEtx;
}

std::wstring SmsUcpSender::UcpChecksum(const std::wstring& text) {
  static const wchar_t kHex[] = L"0123456789ABCDEF";
  // A 16-bit total: a long message makes it overflow before TextLength can stop it.
  int16_t total = 0;
  for (wchar_t c : text) total = CheckInt16(static_cast<long long>(total) + LineCode(c));

  std::wstring hex;
  for (int value = total; hex.empty() || value != 0; value >>= 4) {
    hex.insert(hex.begin(), kHex[value & 0x0F]);
  }
  return hex.size() > 2 ? hex.substr(hex.size() - 2) : hex;
}

void SmsUcpSender::Send(const std::wstring& msg) {
  if (!modem->comm->PortOpen()) throw AppError(kUcpPortClosed, L"Port closed prematurely.");
  modem->ClearInBuffer();
  // What the modem said during the dial stays in recv_buffer; only an STX marks the reply.
  WaitSeconds(kPauseSeconds);

  for (int transmission = 0; transmission < kTransmissions; ++transmission) {
    // A hang-up signalled during the pause or an earlier transmission no longer counts.
    modem->hang_up_detected = false;
    LogDebug(L"Sending UCP message.");
    modem->SendData(msg);
    for (int poll = 0; poll < kPolls; ++poll) {
      // The reply and a lost line show up only while events are delivered, inside the wait.
      WaitSeconds(1);
      if (modem->hang_up_detected) throw AppError(kUcpHangUp, L"Modem hung up unexpectedly.");

      // The first STX stays the reply's start for the whole call: later replies are never read.
      const std::wstring& received = modem->recv_buffer;
      const size_t start = received.find(kStx);
      if (start == std::wstring::npos) continue;
      LogDebug(L"Processing returned message.");
      if (start + kLetterOffset >= received.size()) continue;

      const wchar_t letter = received[start + kLetterOffset];
      if (letter == L'A') {
        LogDebug(L"Message was accepted by the provider.");
        return;
      }
      if (letter == L'N') {
        LogDebug(L"Message was not accepted by the provider.");
        const std::wstring code = start + kCodeOffset < received.size()
                                      ? received.substr(start + kCodeOffset, 2)
                                      : std::wstring();
        const std::wstring description =
            L"Error received from provider : " + ProviderErrorText(code);
        // One number, two rows in the table of error lines, which tell them apart by the text.
        if (code == L"07") throw AppError(kUcpAuthenticationFailed, description);
        throw AppError(kUcpMessageRefused, description);
      }
    }
  }
  throw AppError(kUcpTooManyRetries, L"Too many retries. The message was not delivered.");
}

}  // namespace kw
