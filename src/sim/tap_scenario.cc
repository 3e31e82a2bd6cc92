#include "sim/tap_scenario.h"

#include <climits>
#include <stdexcept>

#include "sim/options.h"

namespace kw::sim {
namespace {

long long ParseNumber(const std::string& key, const std::string& value) {
  return NumberOption("tap option " + key, value, LLONG_MIN);
}

/// A reply written as tokens joined by "+": ack, nak, rs, esceot; "silent" is no reply.
std::string ParseReply(const std::string& key, const std::string& value) {
  if (value == "silent") return "";
  std::string bytes;
  size_t start = 0;
  for (;;) {
    const size_t plus = value.find('+', start);
    const std::string token = value.substr(start, plus - start);
    if (token == "ack") {
      bytes += kTapAck;
    } else if (token == "nak") {
      bytes += kTapNak;
    } else if (token == "rs") {
      bytes += kTapRs;
    } else if (token == "esceot") {
      bytes += kTapEscEot;
    } else {
      throw std::invalid_argument("tap option " + key + ": unknown reply \"" + token +
                                  "\" (ack, nak, rs, esceot joined by +, or silent)");
    }
    if (plus == std::string::npos) return bytes;
    start = plus + 1;
  }
}

void ParseDrop(const std::string& value, TapScenario& scenario) {
  if (value == "never") {
    scenario.drop = DropPoint::kNever;
    return;
  }
  const size_t colon = value.find(':');
  const std::string kind = value.substr(0, colon);
  if (kind == "probe") {
    scenario.drop = DropPoint::kProbe;
  } else if (kind == "login") {
    scenario.drop = DropPoint::kLogin;
  } else if (kind == "block") {
    scenario.drop = DropPoint::kBlock;
  } else {
    throw std::invalid_argument("tap option drop: \"" + value +
                                "\" (never, probe:N, login:N or block:N)");
  }
  scenario.drop_after = colon == std::string::npos
                            ? 1
                            : static_cast<int>(ParseNumber("drop", value.substr(colon + 1)));
}

}  // namespace

TapScenario TapScenarioFromOptions(const std::map<std::string, std::string>& options) {
  TapScenario s;
  for (const auto& [key, value] : options) {
    auto number = [&key = key, &value = value] { return ParseNumber(key, value); };
    if (key == "prompt_after") {
      s.prompt_after = static_cast<int>(number());
    } else if (key == "prompt") {
      s.prompt = value;
    } else if (key == "password") {
      s.password = value;
    } else if (key == "login_naks") {
      s.login_naks = static_cast<int>(number());
    } else if (key == "login") {
      s.login_answer = ParseReply(key, value);
    } else if (key == "go_ahead") {
      if (value == "with") {
        s.go_ahead = GoAhead::kWithAck;
      } else if (value == "later") {
        s.go_ahead = GoAhead::kLater;
      } else if (value == "never") {
        s.go_ahead = GoAhead::kNever;
      } else {
        throw std::invalid_argument("tap option go_ahead: \"" + value + "\" (with, later, never)");
      }
    } else if (key == "go_ahead_gap") {
      s.go_ahead_gap_ms = number();
    } else if (key == "block_naks") {
      s.block_naks = static_cast<int>(number());
    } else if (key == "block") {
      s.block_answer = ParseReply(key, value);
    } else if (key == "nak_bad_blocks") {
      s.nak_bad_blocks = number() != 0;
    } else if (key == "prompt_delay") {
      s.prompt_delay_ms = number();
    } else if (key == "login_delay") {
      s.login_delay_ms = number();
    } else if (key == "block_delay") {
      s.block_delay_ms = number();
    } else if (key == "split") {
      s.split = static_cast<int>(number());
    } else if (key == "split_gap") {
      s.split_gap_ms = number();
    } else if (key == "drop") {
      ParseDrop(value, s);
    } else {
      throw std::invalid_argument("centre \"tap\" takes no option \"" + key + "\"");
    }
  }
  return s;
}

}  // namespace kw::sim
