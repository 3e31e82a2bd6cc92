#include "os/telnet.h"

namespace kw {

using telnet::kDo;
using telnet::kDont;
using telnet::kIac;
using telnet::kSb;
using telnet::kSe;
using telnet::kWill;
using telnet::kWont;

TelnetCodec::TelnetCodec(std::initializer_list<uint8_t> local,
                         std::initializer_list<uint8_t> remote) {
  for (uint8_t option : local) local_ok_[option] = true;
  for (uint8_t option : remote) remote_ok_[option] = true;
}

void TelnetCodec::OfferLocal(uint8_t option, std::string* wire) {
  if (local_[option] != State::kNo) return;
  local_[option] = State::kAsked;
  *wire += {static_cast<char>(kIac), static_cast<char>(kWill), static_cast<char>(option)};
}

void TelnetCodec::AskRemote(uint8_t option, std::string* wire) {
  if (remote_[option] != State::kNo) return;
  remote_[option] = State::kAsked;
  *wire += {static_cast<char>(kIac), static_cast<char>(kDo), static_cast<char>(option)};
}

void TelnetCodec::Negotiate(uint8_t verb, uint8_t option, std::string* wire) {
  // WILL and WONT speak of the other side's option, DO and DONT of ours.
  const bool theirs = verb == kWill || verb == kWont;
  const bool enable = verb == kWill || verb == kDo;
  State& state = theirs ? remote_[option] : local_[option];
  const bool acceptable = (theirs ? remote_ok_ : local_ok_)[option];
  uint8_t answer = 0;
  if (enable) {
    if (state == State::kNo) {
      state = acceptable ? State::kYes : State::kNo;
      answer = acceptable ? (theirs ? kDo : kWill) : (theirs ? kDont : kWont);
    } else {
      state = State::kYes;  // an answer to our request, or a repeat: nothing to say
    }
  } else {
    if (state == State::kYes) answer = theirs ? kDont : kWont;
    state = State::kNo;  // a refusal of our request needs no answer either
  }
  if (answer != 0)
    *wire += {static_cast<char>(kIac), static_cast<char>(answer), static_cast<char>(option)};
}

void TelnetCodec::Command(uint8_t byte, std::string* data) {
  mode_ = Mode::kData;
  if (byte == kIac) {
    data->push_back(static_cast<char>(kIac));
  } else if (byte >= kWill) {  // WILL, WONT, DO, DONT
    verb_ = byte;
    mode_ = Mode::kVerb;
  } else if (byte == kSb) {
    sub_.clear();
    sub_too_long_ = false;
    mode_ = Mode::kSub;
  }
  // Any other command (NOP, a lone SE, junk) means nothing to a serial line.
}

void TelnetCodec::Decode(std::string_view bytes, std::string* data, std::string* wire,
                         std::vector<std::string>* subs) {
  for (const char c : bytes) {
    const uint8_t byte = static_cast<uint8_t>(c);
    switch (mode_) {
      case Mode::kData:
        if (byte == kIac) {
          mode_ = Mode::kIac;
        } else {
          data->push_back(c);
        }
        break;
      case Mode::kIac:
        Command(byte, data);
        break;
      case Mode::kVerb:
        Negotiate(verb_, byte, wire);
        mode_ = Mode::kData;
        break;
      case Mode::kSub:
      case Mode::kSubIac:
        if (mode_ == Mode::kSub && byte == kIac) {
          mode_ = Mode::kSubIac;
          break;
        }
        if (mode_ == Mode::kSubIac && byte == kSe) {
          if (!sub_.empty() && !sub_too_long_) subs->push_back(sub_);
          mode_ = Mode::kData;
          break;
        }
        if (mode_ == Mode::kSubIac && byte != kIac) {
          // IAC and a command inside a subnegotiation: it was never closed; drop it.
          Command(byte, data);
          break;
        }
        mode_ = Mode::kSub;
        if (sub_.size() < kMaxSub) {
          sub_.push_back(c);
        } else {
          sub_too_long_ = true;
        }
        break;
    }
  }
}

void TelnetCodec::Escape(std::string_view data, std::string* wire) {
  for (const char c : data) {
    wire->push_back(c);
    if (static_cast<uint8_t>(c) == kIac) wire->push_back(c);
  }
}

std::string TelnetCodec::Subnegotiation(uint8_t option, std::string_view payload) {
  std::string wire = {static_cast<char>(kIac), static_cast<char>(kSb), static_cast<char>(option)};
  Escape(payload, &wire);
  return wire + std::string{static_cast<char>(kIac), static_cast<char>(kSe)};
}

std::string ComPortCommand(uint8_t command, std::string_view value) {
  return TelnetCodec::Subnegotiation(
      telnet::kComPort, std::string(1, static_cast<char>(command)) + std::string(value));
}

std::string ComPortSetUp(bool rts_high) {
  const auto byte = [](uint8_t value) { return std::string(1, static_cast<char>(value)); };
  // 9600 as four bytes in network order.
  return ComPortCommand(telnet::kSetBaudRate, std::string{0, 0, 0x25, static_cast<char>(0x80)}) +
         ComPortCommand(telnet::kSetDataSize, byte(8)) +
         ComPortCommand(telnet::kSetParity, byte(1)) +
         ComPortCommand(telnet::kSetStopSize, byte(1)) +
         ComPortCommand(telnet::kSetControl, byte(telnet::kNoFlowControl)) +
         ComPortCommand(telnet::kSetControl, byte(telnet::kDtrOn)) +
         ComPortCommand(telnet::kSetControl, byte(rts_high ? telnet::kRtsOn : telnet::kRtsOff)) +
         ComPortCommand(telnet::kSetModemStateMask, byte(0xFF));
}

}  // namespace kw
