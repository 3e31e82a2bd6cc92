#include "sim/ucp_centre.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "sim/options.h"

namespace kw::sim {
namespace {

constexpr char kStx = 0x02;
constexpr char kEtx = 0x03;

/// Where each operation carries the message text (1-based), and how many data fields it has.
struct OperationLayout {
  const char* operation;
  size_t text_field;
  size_t field_count;
};

constexpr OperationLayout kLayouts[] = {
    {"01", 5, 5},
    {"03", 16, 16},
    {"30", 10, 10},
    {"51", 20, 32},
};

const OperationLayout* LayoutOf(const std::string& operation) {
  for (const OperationLayout& layout : kLayouts) {
    if (operation == layout.operation) return &layout;
  }
  return nullptr;
}

std::vector<std::string> SplitAt(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t from = 0;
  for (size_t at = text.find(separator); at != std::string::npos; at = text.find(separator, from)) {
    parts.push_back(text.substr(from, at - from));
    from = at + 1;
  }
  parts.push_back(text.substr(from));
  return parts;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

/// Decodes pairs of hexadecimal digits into bytes; false (and the text kept) when they aren't.
bool DecodeHex(const std::string& hex, std::string& text) {
  if (hex.size() % 2 != 0) return false;
  std::string out;
  for (size_t i = 0; i < hex.size(); i += 2) {
    const int high = HexValue(hex[i]);
    const int low = HexValue(hex[i + 1]);
    if (high < 0 || low < 0) return false;
    out.push_back(static_cast<char>(high * 16 + low));
  }
  text = std::move(out);
  return true;
}

/// The text for a transcript note: control bytes written as \xNN.
std::string Shown(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
      out += escaped;
    } else {
      out.push_back(static_cast<char>(c));
    }
  }
  return out;
}

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
    } else if (next == 'x' && i + 2 < value.size() && HexValue(value[i + 1]) >= 0 &&
               HexValue(value[i + 2]) >= 0) {
      out.push_back(static_cast<char>(HexValue(value[i + 1]) * 16 + HexValue(value[i + 2])));
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

std::string UcpSum(const std::string& text) {
  unsigned sum = 0;
  for (unsigned char c : text) sum += c;
  char digits[4];
  std::snprintf(digits, sizeof digits, "%02X", sum & 0xFF);
  return digits;
}

std::string UcpReply(const std::string& operation, char letter, const std::string& fields) {
  // The program reads the letter at a fixed offset, which holds only for a two-character
  // operation; a real centre answers an unknown operation in the same fixed layout.
  const std::string op = operation.size() == 2 ? operation : "00";
  const std::string tail = "/R/" + op + "/" + std::string(1, letter) + "/" + fields + "/";
  // The length counts from the transaction number through the checksum: "01/" and the five
  // digits, the tail and two checksum digits.
  char length[8];
  std::snprintf(length, sizeof length, "%05zu", 3 + 5 + tail.size() + 2);
  const std::string body = "01/" + std::string(length) + tail;
  return kStx + body + UcpSum(body) + kEtx;
}

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
                " byte(s) outside a frame ignored: " + Shown(pending_.substr(0, outside)));
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
  const std::vector<std::string> header = SplitAt(body, '/');
  // Transaction number, length, type and operation come first; the checksum stands last.
  size_t data_start = 0;
  for (int i = 0; i < 4 && data_start != std::string::npos; ++i) {
    const size_t slash = body.find('/', data_start);
    data_start = slash == std::string::npos ? slash : slash + 1;
  }
  const size_t last = body.rfind('/');
  if (data_start == std::string::npos || last < data_start || header[2] != "O") {
    line.Note(name + ": not an operation frame: " + Shown(body));
    frames_.push_back(frame);
    // Its length can't be trusted: strict, that is a syntax error.
    if (scenario_.strict && !scenario_.silent) Answer(now_ms, frame, line);
    return;
  }

  frame.operation = header[3];
  frame.length_ok = header[1].size() == 5 &&
                    std::all_of(header[1].begin(), header[1].end(),
                                [](char c) { return c >= '0' && c <= '9'; }) &&
                    std::stoul(header[1]) == body.size();
  frame.checksum_ok = UcpSum(body.substr(0, last + 1)) == body.substr(last + 1);

  const std::string data = body.substr(data_start, last - data_start);
  const std::vector<std::string> fields = SplitAt(data, '/');
  frame.field_count = data.empty() ? 0 : fields.size();
  std::string note = name + ": op " + frame.operation;
  if (const OperationLayout* layout = LayoutOf(frame.operation)) {
    auto field = [&fields](size_t n) { return n <= fields.size() ? fields[n - 1] : ""; };
    frame.recipient = field(1);
    frame.sender = field(2);
    frame.auth = field(3);
    const std::string hex = field(layout->text_field);
    frame.text_is_hex = DecodeHex(hex, frame.text);
    if (!frame.text_is_hex) frame.text = hex;
    note += ", recipient " + Shown(frame.recipient) + ", sender " + Shown(frame.sender) +
            ", auth \"" + Shown(frame.auth) + "\", text \"" + Shown(frame.text) + "\"";
    if (!frame.text_is_hex) note += " (not hexadecimal)";
    if (frame.field_count != layout->field_count) {
      note += ", " + std::to_string(frame.field_count) + " fields (expected " +
              std::to_string(layout->field_count) + ")";
    }
  } else {
    note += " (unknown operation), data \"" + Shown(data) + "\"";
  }
  note += frame.length_ok ? ", length ok" : ", length bad";
  note += frame.checksum_ok ? ", checksum ok" : ", checksum bad";
  line.Note(note);
  frames_.push_back(frame);

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
    const char* refusal = !frame.length_ok             ? "02"
                          : !frame.checksum_ok         ? "01"
                          : !LayoutOf(frame.operation) ? "03"
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
