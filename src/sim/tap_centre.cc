#include "sim/tap_centre.h"

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

#include "sim/options.h"

namespace kw::sim {
namespace {

constexpr char kCr = '\r';
constexpr char kEsc = '\x1b';
constexpr char kStx = '\x02';
constexpr char kEtx = '\x03';
/// What the centre puts on the line to let the program send its block.
const std::string kGoAheadLine = "\x1b[p\r";
/// What opens every login request.
const std::string kLoginOpening = "\x1bPG1";

/// The bytes in a readable form for the transcript: control and 8-bit bytes by name or as
/// <xNN>, printable ones as they are.
std::string Describe(const std::string& bytes) {
  std::string out;
  for (char c : bytes) {
    const auto b = static_cast<unsigned char>(c);
    switch (b) {
      case 0x02:
        out += "<STX>";
        break;
      case 0x03:
        out += "<ETX>";
        break;
      case 0x04:
        out += "<EOT>";
        break;
      case 0x06:
        out += "<ACK>";
        break;
      case 0x0D:
        out += "<CR>";
        break;
      case 0x15:
        out += "<NAK>";
        break;
      case 0x1B:
        out += "<ESC>";
        break;
      case 0x1E:
        out += "<RS>";
        break;
      default:
        if (b < 0x20 || b >= 0x7F) {
          char hex[8];
          std::snprintf(hex, sizeof hex, "<x%02X>", b);
          out += hex;
        } else {
          out.push_back(c);
        }
    }
  }
  return out;
}

/// An answer for the transcript; no bytes at all is silence.
std::string DescribeAnswer(const std::string& bytes) {
  return bytes.empty() ? "silence" : Describe(bytes);
}

/// The three checksum characters of a block: the byte sum's bits 11-8, 7-4, 3-0, each + 0x30.
/// Worked out here on its own, so that the centre judges the program's sum and doesn't share it.
std::string BlockChecksum(const std::string& bytes) {
  unsigned long sum = 0;
  for (char c : bytes) sum += static_cast<unsigned char>(c);
  return {static_cast<char>(0x30 + ((sum >> 8) & 0x0F)),
          static_cast<char>(0x30 + ((sum >> 4) & 0x0F)), static_cast<char>(0x30 + (sum & 0x0F))};
}

}  // namespace

TapCentre::TapCentre(TapScenario scenario) : scenario_(std::move(scenario)) {}

void TapCentre::OnBytes(int64_t now_ms, const std::string& bytes, PeerLine& line) {
  if (dropped_) {
    line.Note("centre: line is down, " + Describe(bytes) + " lost");
    return;
  }
  pending_ += bytes;
  while (!pending_.empty() && !dropped_ && TakeUnit(now_ms, line)) {
  }
}

void TapCentre::OnClose(int64_t, PeerLine&) {
  pending_.clear();
  logged_in_ = false;
  dropped_ = false;
  probes_ = 0;
  logins_ = 0;
  blocks_ = 0;
}

bool TapCentre::TakeUnit(int64_t now_ms, PeerLine& line) {
  const char first = pending_.front();
  if (first == kCr) {
    pending_.erase(0, 1);
    OnProbe(now_ms, line);
    return true;
  }
  if (first == kEsc) {
    const size_t cr = pending_.find(kCr);
    if (cr == std::string::npos) return false;  // the rest of the request is still on its way
    const std::string request = pending_.substr(0, cr + 1);
    pending_.erase(0, cr + 1);
    OnLogin(now_ms, request, line);
    return true;
  }
  if (first == kStx) {
    // A block ends four bytes behind its ETX: three checksum characters and a CR.
    const size_t etx = pending_.find(kEtx);
    if (etx == std::string::npos || pending_.size() < etx + 5) return false;
    const std::string block = pending_.substr(0, etx + 5);
    pending_.erase(0, etx + 5);
    OnBlock(now_ms, block, line);
    return true;
  }
  // Not part of the dialogue, such as the "ATH" that a modem in data mode passes on.
  const size_t end = pending_.find_first_of(std::string{kCr, kEsc, kStx});
  line.Note("centre: ignored " + Describe(pending_.substr(0, end)));
  pending_.erase(0, end);
  return true;
}

void TapCentre::OnProbe(int64_t now_ms, PeerLine& line) {
  if (logged_in_) {
    line.Note("centre: CR after the login ignored");
    return;
  }
  ++probes_;
  const bool answered = scenario_.prompt_after >= 0 && probes_ > scenario_.prompt_after;
  line.Note("centre: probe " + std::to_string(probes_) + ", " +
            (answered ? "prompt " + Describe(scenario_.prompt) : std::string("no answer")));
  int64_t end = now_ms;
  if (answered) end = Answer(now_ms + scenario_.prompt_delay_ms, scenario_.prompt, line);
  MaybeDrop(DropPoint::kProbe, probes_, end, line);
}

void TapCentre::OnLogin(int64_t now_ms, const std::string& request, PeerLine& line) {
  if (request.compare(0, kLoginOpening.size(), kLoginOpening) != 0) {
    line.Note("centre: unknown request " + Describe(request) + " ignored");
    return;
  }
  ++logins_;
  const std::string password =
      request.substr(kLoginOpening.size(), request.size() - kLoginOpening.size() - 1);
  const bool passwordOk = !scenario_.password || *scenario_.password == password;
  std::string answer;
  if (!passwordOk || logins_ <= scenario_.login_naks) {
    answer = kTapNak;
  } else {
    answer = scenario_.login_answer;
  }
  const bool accepted = answer.find(kTapAck) != std::string::npos;
  if (accepted && scenario_.go_ahead == GoAhead::kWithAck) answer += kGoAheadLine;
  line.Note("centre: login " + std::to_string(logins_) + ", password <" + Describe(password) +
            "> " + (passwordOk ? "ok" : "bad") + ", answer " + DescribeAnswer(answer));
  int64_t end = Answer(now_ms + scenario_.login_delay_ms, answer, line);
  if (accepted) {
    logged_in_ = true;
    if (scenario_.go_ahead == GoAhead::kLater) {
      end = Answer(end + scenario_.go_ahead_gap_ms, kGoAheadLine, line);
    }
  }
  MaybeDrop(DropPoint::kLogin, logins_, end, line);
}

void TapCentre::OnBlock(int64_t now_ms, const std::string& block, PeerLine& line) {
  ++blocks_;
  // Layout: STX, recipient digits, CR, message, CR, ETX, three checksum characters, CR. The
  // message runs to the CR right before the ETX, so a CR inside it is kept.
  const size_t etx = block.size() - 5;
  const size_t cr1 = block.find(kCr, 1);
  std::string fault;
  std::string recipient;
  std::string message;
  if (cr1 == std::string::npos || cr1 >= etx || block[etx - 1] != kCr || cr1 == etx - 1) {
    fault = "layout bad: no CR behind both fields";
  } else {
    recipient = block.substr(1, cr1 - 1);
    message = block.substr(cr1 + 1, etx - 1 - (cr1 + 1));
    if (recipient.empty() || recipient.find_first_not_of("0123456789") != std::string::npos) {
      fault = "layout bad: recipient is not digits";
    } else if (block.back() != kCr) {
      fault = "layout bad: no CR at the end";
    }
  }
  const std::string got = block.substr(etx + 1, 3);
  const std::string want = BlockChecksum(block.substr(0, etx + 1));
  const std::string verdict =
      got == want ? "checksum ok" : "checksum bad: got " + Describe(got) + " want " + want;
  const bool bad = !fault.empty() || got != want;
  std::string answer;
  if (bad && scenario_.nak_bad_blocks) {
    answer = kTapNak;
  } else if (blocks_ <= scenario_.block_naks) {
    answer = kTapNak;
  } else {
    answer = scenario_.block_answer;
  }
  line.Note("centre: block " + std::to_string(blocks_) + ", recipient <" + Describe(recipient) +
            "> message <" + Describe(message) + ">, " + (fault.empty() ? "" : fault + ", ") +
            verdict + ", answer " + DescribeAnswer(answer));
  const int64_t end = Answer(now_ms + scenario_.block_delay_ms, answer, line);
  MaybeDrop(DropPoint::kBlock, blocks_, end, line);
}

int64_t TapCentre::Answer(int64_t at_ms, const std::string& bytes, PeerLine& line) {
  if (bytes.empty()) return at_ms;
  const std::vector<std::string> chunks = SplitInto(bytes, scenario_.split);
  int64_t at = at_ms;
  for (size_t i = 0; i < chunks.size(); ++i) {
    at = at_ms + static_cast<int64_t>(i) * scenario_.split_gap_ms;
    line.SendAt(at, chunks[i]);
  }
  return at;
}

void TapCentre::MaybeDrop(DropPoint point, int count, int64_t at_ms, PeerLine& line) {
  if (scenario_.drop != point || count != scenario_.drop_after) return;
  dropped_ = true;
  line.Note("centre: drops the line");
  if (scenario_.own_no_carrier) line.SendAt(at_ms, "\r\nNO CARRIER\r\n");
  line.SetCarrier(false);
}

}  // namespace kw::sim
