#include "sim/sim_modem.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "sim/options.h"

namespace kw::sim {
namespace {

/// Whether the text starts with the prefix, letters compared without case.
bool StartsWithNoCase(const std::string& text, const std::string& prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (std::toupper(static_cast<unsigned char>(text[i])) !=
        std::toupper(static_cast<unsigned char>(prefix[i]))) {
      return false;
    }
  }
  return true;
}

}  // namespace

/// Passes everything through to the driver's line, and turns the centre's SetCarrier(false) into
/// the modem's hang-up after the last bytes the centre has queued.
class SimModem::CentreLine : public PeerLine {
 public:
  CentreLine(SimModem& modem, PeerLine& line, int64_t now_ms)
      : modem_(modem), line_(line), now_ms_(now_ms) {}

  void SendAt(int64_t at_ms, const std::string& bytes) override {
    modem_.centre_last_send_ms_ = std::max(modem_.centre_last_send_ms_, at_ms);
    line_.SendAt(at_ms, bytes);
  }

  void SetCarrier(bool high) override {
    // The carrier is the modem's; the centre can only end the call.
    if (high || modem_.state_ != State::kData) return;
    for (const auto& [at, action] : modem_.actions_) {
      if (action == Action::kHangUp) return;
    }
    modem_.actions_.emplace(std::max(now_ms_, modem_.centre_last_send_ms_), Action::kHangUp);
  }

  void Note(const std::string& text) override { line_.Note(text); }

 private:
  SimModem& modem_;
  PeerLine& line_;
  int64_t now_ms_;
};

SimModem::SimModem(ModemScenario scenario) : scenario_(std::move(scenario)) {}

SimModem::~SimModem() = default;

void SimModem::SetCentre(std::unique_ptr<Peer> centre) { centre_ = std::move(centre); }

void SimModem::OnBytes(int64_t now_ms, const std::string& bytes, PeerLine& line) {
  RunDue(now_ms, line);
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (state_ == State::kCommand) {
      CommandByte(now_ms, bytes[i], line);
    } else if (state_ == State::kDialling) {
      line.Note("modem: " + std::to_string(bytes.size() - i) + " byte(s) ignored while dialling");
      break;
    } else {
      const std::string data = bytes.substr(i);
      if (centre_) {
        CentreLine centre_line(*this, line, now_ms);
        centre_->OnBytes(now_ms, data, centre_line);
      } else {
        data_received_ += data;
      }
      break;
    }
  }
  RunDue(now_ms, line);
}

void SimModem::OnClose(int64_t now_ms, PeerLine& line) {
  // DTR dropped: whatever the modem was doing, it hangs up and forgets the call.
  actions_.clear();
  state_ = State::kCommand;
  connected_ = false;
  command_.clear();
  SetCarrier(false, line);
  if (centre_) {
    CentreLine centre_line(*this, line, now_ms);
    centre_->OnClose(now_ms, centre_line);
  }
  actions_.clear();
  centre_last_send_ms_ = 0;
}

int64_t SimModem::NextTimerMs() const {
  int64_t next = actions_.empty() ? kNoTimer : actions_.begin()->first;
  if (const TimedPeer* centre = TimedCentre()) {
    const int64_t centre_next = centre->NextTimerMs();
    if (centre_next != kNoTimer && (next == kNoTimer || centre_next < next)) next = centre_next;
  }
  return next;
}

void SimModem::OnTimer(int64_t now_ms, PeerLine& line) {
  RunDue(now_ms, line);
  if (TimedPeer* centre = TimedCentre()) {
    const int64_t centre_next = centre->NextTimerMs();
    if (centre_next != kNoTimer && centre_next <= now_ms) {
      CentreLine centre_line(*this, line, now_ms);
      centre->OnTimer(now_ms, centre_line);
      RunDue(now_ms, line);
    }
  }
}

void SimModem::CommandByte(int64_t now_ms, char byte, PeerLine& line) {
  if (scenario_.echo) line.SendAt(now_ms, std::string(1, byte));
  if (byte == '\r') {
    const std::string text = std::move(command_);
    command_.clear();
    CommandLine(now_ms, text, line);
  } else if (byte != '\n') {  // the LF of a CR LF belongs to no command
    command_.push_back(byte);
  }
}

void SimModem::CommandLine(int64_t now_ms, const std::string& text, PeerLine& line) {
  if (!StartsWithNoCase(text, "AT")) {
    if (!text.empty()) line.Note("modem: not a command, ignored");
    return;
  }
  if (StartsWithNoCase(text, "ATD")) {
    std::string number = text.substr(3);
    if (StartsWithNoCase(number, "T") || StartsWithNoCase(number, "P")) number.erase(0, 1);
    last_dialled_ = number;
    Dial(now_ms, line);
    return;
  }
  line.SendAt(now_ms, Framed("OK"));
}

void SimModem::Dial(int64_t now_ms, PeerLine& line) {
  state_ = State::kDialling;
  if (scenario_.silent) {
    line.Note("modem: dial " + last_dialled_ + ", no answer");
    return;
  }
  line.Note("modem: dial " + last_dialled_ + ", answer " + scenario_.dial_result);
  const int64_t start = now_ms + scenario_.result_delay_ms;
  std::string leading;
  for (const std::string& text : scenario_.leading_lines) leading += Framed(text);
  if (!leading.empty()) line.SendAt(start, leading);
  const std::vector<std::string> chunks = SplitInto(Framed(scenario_.dial_result), scenario_.split);
  int64_t at = start;
  for (size_t i = 0; i < chunks.size(); ++i) {
    at = start + static_cast<int64_t>(i) * scenario_.split_gap_ms;
    line.SendAt(at, chunks[i]);
  }
  connected_ = StartsWithNoCase(scenario_.dial_result, "CONNECT");
  if (connected_ && scenario_.carrier == CarrierMode::kAtConnect) {
    actions_.emplace(start, Action::kCarrierUp);
  }
  actions_.emplace(at, Action::kResultDone);
  if (connected_ && scenario_.carrier == CarrierMode::kLate) {
    actions_.emplace(at + scenario_.carrier_delay_ms, Action::kCarrierUp);
  }
}

void SimModem::RunDue(int64_t now_ms, PeerLine& line) {
  while (!actions_.empty() && actions_.begin()->first <= now_ms) {
    const auto [at, action] = *actions_.begin();
    actions_.erase(actions_.begin());
    switch (action) {
      case Action::kCarrierUp:
        SetCarrier(true, line);
        break;
      case Action::kResultDone:
        state_ = connected_ ? State::kData : State::kCommand;
        centre_last_send_ms_ = at;
        break;
      case Action::kHangUp:
        line.Note("modem: the centre hung up");
        line.SendAt(at, Framed("NO CARRIER"));
        SetCarrier(false, line);
        state_ = State::kCommand;
        connected_ = false;
        command_.clear();
        break;
    }
  }
}

void SimModem::SetCarrier(bool high, PeerLine& line) {
  if (carrier_ == high) return;
  carrier_ = high;
  line.SetCarrier(high);
}

std::string SimModem::Framed(const std::string& text) const {
  const char* end = scenario_.lf_cr ? "\n\r" : "\r\n";
  return end + text + end;
}

TimedPeer* SimModem::TimedCentre() const { return dynamic_cast<TimedPeer*>(centre_.get()); }

}  // namespace kw::sim
