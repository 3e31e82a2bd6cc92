#include "tap/sms_tap_sender.h"

#include <cstdint>

#include "base/error.h"
#include "base/error_numbers.h"
#include "base/text.h"
#include "link/communication.h"
#include "log/logging.h"
#include "os/runtime.h"

namespace kw {
namespace {

/// Probes of the first login phase before the prompt counts as missing.
constexpr int16_t kMaxProbes = 10;
/// NAK passes that the login survives; the next one fails it.
constexpr int16_t kMaxNakPasses = 5;
/// Passes without any answer after which the login gives up (the provider may never speak).
constexpr int16_t kMaxSilentPasses = 30;
/// Transmissions of one block.
constexpr int16_t kMaxAttempts = 5;

/// ESC directly followed by EOT: the provider ends the dialogue.
const std::wstring kEscEot = {kEsc, kEot};
/// ESC and the keyword that open the login request.
const std::wstring kLoginOpening = {kEsc, L'P', L'G', L'1'};

/// Whether the sequence stands anywhere in the whole buffer; nothing is removed.
bool Holds(const Modem& link, const std::wstring& sequence) {
  return link.recv_buffer.find(sequence) != std::wstring::npos;
}

bool Holds(const Modem& link, wchar_t byte) {
  return link.recv_buffer.find(byte) != std::wstring::npos;
}

}  // namespace

void SmsTapSender::Login(const std::wstring& authentication) {
  // Phase 1: a CR a second until the provider shows its prompt. The buffer is emptied before
  // each probe, so a prompt only counts when it arrives whole within one wait.
  bool prompted = false;
  for (int16_t probe = 1; probe <= kMaxProbes && !prompted; ++probe) {
    modem->comm->SetInBufferCount(0);
    modem->recv_buffer.clear();
    modem->SendData(std::wstring(1, kCr));
    WaitSeconds(1);
    prompted = Holds(*modem, L"ID=");
  }
  if (!prompted) {
    modem->HangUp();
    throw AppError(kTapNoPrompt, L"No login prompt from SMSC provider within " +
                                     std::to_wstring(kMaxProbes) + L" attempts. Modem hung up.");
  }

  // Phase 2: the request until an answer decides. The buffer keeps every reply from the prompt
  // on, so a NAK once seen counts again at every later pass, and the order of the tests
  // decides between replies that stand in it together.
  modem->ClearInBuffer();
  const std::wstring request = kLoginOpening + authentication + kCr;
  int16_t nak_count = 0;
  int16_t silent_passes = 0;
  for (;;) {
    LogDebug(L"Requesting login.");
    modem->SendData(request);
    modem->hang_up_detected = false;
    WaitSeconds(1);
    if (modem->hang_up_detected) {
      throw AppError(kTapHangUpInLogin, L"Modem hung up unexpectedly while logging in.");
    }
    if (Holds(*modem, kAck)) {
      LogDebug(L"TAP authentication succesful");
      authenticated = true;
      return;
    }
    if (Holds(*modem, kNak)) {
      ++nak_count;
      if (nak_count <= kMaxNakPasses) continue;
      const std::wstring count = std::to_wstring(nak_count);
      LogDebug(L"Exceeded maximum number of login attempts (" + count + L").");
      authenticated = false;
      throw AppError(kTapLoginRefused,
                     L"Too many login attempts (" + count +
                         L"). Please check the provider authentication settings.");
    }
    if (Holds(*modem, kEscEot)) {
      throw AppError(kTapForcedDisconnect, L"Forced disconnect from provider.");
    }
    // A provider that never answers would keep this loop going as long as the line stays up.
    ++silent_passes;
    if (silent_passes >= kMaxSilentPasses) {
      modem->HangUp();
      throw AppError(kTapLoginUnanswered, L"Number of login retries (" +
                                              std::to_wstring(kMaxSilentPasses) +
                                              L") over. Modem hung up.");
    }
  }
}

void SmsTapSender::Send(const SmsMessage& msg) {
  LogDebug(L"Sending TAP message.");
  // One look, no wait: the go-ahead must have come during the last wait of the login.
  if (!Holds(*modem, L"[p")) {
    throw AppError(kTapNoGoAhead, L"Provider did not say it's ok to proceed.");
  }

  std::wstring block = kStx + msg.parsed_recipient + kCr + msg.message + kCr + kEtx;
  block += TapChecksum(block) + kCr;

  if (!modem->is_connected) {
    throw AppError(kTapLineDown, L"Modem is not connected. Message could not be sent");
  }
  // The login's replies are no answer to the block.
  modem->recv_buffer.clear();
  for (int16_t attempt = 1; attempt <= kMaxAttempts; ++attempt) {
    modem->hang_up_detected = false;
    modem->SendData(block);
    WaitSeconds(1);
    if (modem->hang_up_detected) {
      throw AppError(kTapHangUpAfterSend, L"Modem hung up unexpectedly.");
    }
    if (Holds(*modem, kAck)) {
      LogDebug(L"Message was accepted by the provider.");
      return;
    }
    if (Holds(*modem, kNak)) {
      LogDebug(L"Message requested again.");
    } else if (Holds(*modem, kRs)) {
      throw AppError(kTapMessageRejected, L"The message was rejected by the provider.");
    } else if (Holds(*modem, kEscEot)) {
      throw AppError(kTapMessageNotAccepted, L"The message was not accepted by the provider.");
    }
    // A reply that comes too late for its wait is judged in the next one.
    if (!modem->recv_buffer.empty()) modem->recv_buffer.clear();
  }
  throw AppError(kTapTooManyRetries, L"Too many retries. The message was not delivered.");
}

std::wstring SmsTapSender::TapChecksum(const std::wstring& text) {
  uint64_t sum = 0;
  for (wchar_t c : text) sum += LineCode(c);
  std::wstring digits(3, L'0');
  for (int i = 2; i >= 0; --i) {
    digits[i] = static_cast<wchar_t>(0x30 + (sum & 0x0F));
    sum >>= 4;
  }
  return digits;
}

}  // namespace kw
