#include "sim/ucp_centre.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "sim/options.h"

namespace kw::sim {
namespace {

constexpr char kStx = 0x02;
constexpr char kEtx = 0x03;

/// Reads C-style escapes (\r, \n, \t, \\, \xHH) in an option's value.
std::string Unescaped(const std::string& value) {
  std::string out;
  for (size_t i = 0; i < value.size(); ++i) {
    if (value[i] != '\\' || i + 1 == value.size()) {
      out.push_back(value[i]);
      continue;
    }
    const char next = value[++i];
    if (next == 'r') {
      out.push_back('\r');
    } else if (next == 'n') {
      out.push_back('\n');
    } else if (next == 't') {
      out.push_back('\t');
    } else if (next == 'x' && i + 2 < value.size() && HexDigitValue(value[i + 1]) >= 0 &&
               HexDigitValue(value[i + 2]) >= 0) {
      out.push_back(
          static_cast<char>(HexDigitValue(value[i + 1]) * 16 + HexDigitValue(value[i + 2])));
      i += 2;
    } else {
      out.push_back(next);
    }
  }
  return out;
}

bool FlagOption(const std::string& key, const std::string& value) {
  if (value == "1" || value == "true" || value == "yes") return true;
  if (value == "0" || value == "false" || value == "no") return false;
  throw std::invalid_argument("ucp option " + key + ": \"" + value + "\" is not 0 or 1");
}

UcpScenario ScenarioFrom(const std::map<std::string, std::string>& options) {
  UcpScenario s;
  for (const auto& [key, value] : options) {
    if (key == "letter") {
      if (value.size() != 1) throw std::invalid_argument("ucp option letter: one character");
      s.letter = value[0];
    } else if (key == "code") {
      s.code = value;
    } else if (key == "message") {
      s.message = Unescaped(value);
    } else if (key == "silent") {
      s.silent = FlagOption(key, value);
    } else if (key == "answer_frame") {
      s.answer_frame = static_cast<int>(NumberOption("ucp option " + key, value, 0));
    } else if (key == "delay_ms") {
      s.delay_ms = NumberOption("ucp option " + key, value, 0);
    } else if (key == "pieces") {
      s.pieces = static_cast<int>(NumberOption("ucp option " + key, value, 1));
    } else if (key == "piece_gap_ms") {
      s.piece_gap_ms = NumberOption("ucp option " + key, value, 0);
    } else if (key == "prefix") {
      s.prefix = Unescaped(value);
    } else if (key == "truncate") {
      s.truncate = static_cast<size_t>(NumberOption("ucp option " + key, value, 0));
    } else if (key == "strict") {
      s.strict = FlagOption(key, value);
    } else if (key == "hangup_frame") {
      s.hangup_frame = static_cast<int>(NumberOption("ucp option " + key, value, 0));
    } else if (key == "hangup_delay_ms") {
      s.hangup_delay_ms = NumberOption("ucp option " + key, value, 0);
    } else if (key == "say_no_carrier") {
      s.say_no_carrier = FlagOption(key, value);
    } else {
      throw std::invalid_argument("centre \"ucp\" has no option \"" + key + "\"\n" +
                                  UcpCentre::OptionHelp());
    }
  }
  return s;
}

}  // namespace

UcpCentre::UcpCentre(UcpScenario scenario) : scenario_(std::move(scenario)) {}

UcpCentre::UcpCentre(const std::map<std::string, std::string>& options)
    : scenario_(ScenarioFrom(options)) {}

const char* UcpCentre::OptionHelp() {
  return "  letter=A          answer letter at offset 15 (A, N, or any other, such as a)\n"
         "  code=02           error code behind N\n"
         "  message=TEXT      message field of the reply (escapes \\r \\n \\xHH)\n"
         "  silent=0          1: answer nothing\n"
         "  answer_frame=0    answer only this frame of a call (1 first); 0 every frame\n"
         "  delay_ms=200      from a frame to its reply\n"
         "  pieces=1          reply in this many pieces\n"
         "  piece_gap_ms=300  time between two pieces\n"
         "  prefix=TEXT       text sent just before the reply's STX (escapes as message)\n"
         "  truncate=0        send only this many first bytes of prefix and reply; 0 all\n"
         "  strict=1          bad length, bad checksum, unknown operation: N 02, 01, 03\n"
         "  hangup_frame=0    drop the line on this frame of a call (1 first); 0 never\n"
         "  hangup_delay_ms=0 from that frame to the drop\n"
         "  say_no_carrier=0  1: put NO CARRIER on the line itself (no modem in front)\n";
}

void UcpCentre::OnBytes(int64_t now_ms, const std::string& bytes, PeerLine& line) {
  if (hangup_at_ms_ != kNoTimer && hangup_at_ms_ <= now_ms) OnTimer(now_ms, line);
  pending_ += bytes;
  for (;;) {
    const size_t stx = pending_.find(kStx);
    const size_t outside = stx == std::string::npos ? pending_.size() : stx;
    if (outside > 0) {
      // Between frames a centre only listens for the next STX; the program's "ATH" lands here.
      line.Note("ucp: " + std::to_string(outside) +
                " byte(s) outside a frame ignored: " + ShownInNote(pending_.substr(0, outside)));
      pending_.erase(0, outside);
    }
    if (pending_.empty()) return;
    const size_t etx = pending_.find(kEtx);
    if (etx == std::string::npos) return;  // the rest of the frame is still on its way
    const std::string body = pending_.substr(1, etx - 1);
    pending_.erase(0, etx + 1);
    Frame(now_ms, body, line);
  }
}

void UcpCentre::OnClose(int64_t /*now_ms*/, PeerLine& /*line*/) {
  // The call is over: the next one starts afresh.
  pending_.clear();
  frames_in_call_ = 0;
  dropped_ = false;
  hangup_at_ms_ = kNoTimer;
}

void UcpCentre::OnTimer(int64_t now_ms, PeerLine& line) {
  if (hangup_at_ms_ == kNoTimer || hangup_at_ms_ > now_ms) return;
  hangup_at_ms_ = kNoTimer;
  line.SetCarrier(false);
}

void UcpCentre::DropLine(int64_t now_ms, int64_t at_ms, PeerLine& line) {
  line.Note("ucp: the centre drops the line");
  dropped_ = true;
  if (scenario_.say_no_carrier) line.SendAt(at_ms, "\r\nNO CARRIER\r\n");
  if (at_ms <= now_ms) {
    line.SetCarrier(false);
  } else {
    // Where the driver keeps timers the carrier falls at that moment; behind a SimModem the
    // modem then says NO CARRIER.
    hangup_at_ms_ = at_ms;
  }
}

void UcpCentre::Frame(int64_t now_ms, const std::string& body, PeerLine& line) {
  const int number = ++frames_in_call_;
  const std::string name = "ucp: frame " + std::to_string(number);
  if (dropped_) {
    line.Note(name + " ignored: the line is dropped");
    return;
  }

  UcpFrame frame;
  std::string note;
  const bool operation = ReadUcpFrame(body, frame, note);
  line.Note(name + ": " + note);
  frames_.push_back(frame);
  if (!operation) {
    // Its length can't be trusted: strict, that is a syntax error.
    if (scenario_.strict && !scenario_.silent) Answer(now_ms, frame, line);
    return;
  }

  if (scenario_.hangup_frame == number) {
    DropLine(now_ms, now_ms + scenario_.hangup_delay_ms, line);
  }
  if (scenario_.silent || (scenario_.answer_frame != 0 && scenario_.answer_frame != number)) {
    line.Note(name + " not answered");
    return;
  }
  Answer(now_ms, frame, line);
}

void UcpCentre::Answer(int64_t now_ms, const UcpFrame& frame, PeerLine& line) {
  char letter = scenario_.letter;
  std::string code = scenario_.code;
  std::string message = scenario_.message;
  if (scenario_.strict) {
    // A real centre refuses a frame it can't trust before it looks at the message.
    const char* refusal = !frame.length_ok                        ? "02"
                          : !frame.checksum_ok                    ? "01"
                          : !IsKnownUcpOperation(frame.operation) ? "03"
                                                                  : nullptr;
    if (refusal != nullptr) {
      letter = 'N';
      code = refusal;
      message.clear();
    }
  }
  const bool refused = letter == 'N' || letter == 'n';
  const std::string fields = refused ? code + "/" + message : message;
  std::string bytes = scenario_.prefix + UcpReply(frame.operation, letter, fields);
  if (scenario_.truncate > 0 && scenario_.truncate < bytes.size()) {
    bytes.resize(scenario_.truncate);
  }
  line.Note(
      "ucp: answer " + std::string(1, letter) + (refused ? " " + code : "") +
      (scenario_.truncate > 0 ? ", cut to " + std::to_string(bytes.size()) + " byte(s)" : ""));

  const size_t pieces = std::clamp<size_t>(static_cast<size_t>(std::max(scenario_.pieces, 1)), 1,
                                           std::max<size_t>(bytes.size(), 1));
  size_t at = 0;
  for (size_t i = 0; i < pieces; ++i) {
    const size_t size = bytes.size() / pieces + (i < bytes.size() % pieces ? 1 : 0);
    line.SendAt(now_ms + scenario_.delay_ms + static_cast<int64_t>(i) * scenario_.piece_gap_ms,
                bytes.substr(at, size));
    at += size;
  }
}

}  // namespace kw::sim
