// The telnet decoder of the network ports on any bytes from a server: it never answers more than
// it was asked, its answers are whole commands, a subnegotiation stays within its bound, cutting
// the bytes anywhere changes nothing, and data escaped for the wire decodes to itself.
#include <initializer_list>
#include <vector>

#include "fuzz_util.h"
#include "os/telnet.h"

namespace kw::fuzz {
namespace {

/// What a client of a terminal server, as the rfc2217 port makes it, made of the pieces in turn.
struct Decoded {
  explicit Decoded(std::initializer_list<std::string> pieces) {
    for (const std::string& piece : pieces) codec.Decode(piece, &data, &answers, &subs);
  }
  bool operator==(const Decoded& o) const {
    return data == o.data && answers == o.answers && subs == o.subs;
  }
  kw::TelnetCodec codec{{0, 3, 44}, {0, 3}};
  std::string data, answers;
  std::vector<std::string> subs;
};

}  // namespace

void FuzzOne(const std::string& input) {
  const Decoded whole({input});
  Require(whole.data.size() <= input.size(), "no more data than bytes");
  Require(whole.answers.size() % 3 == 0, "answers are whole three-byte commands");
  size_t requests = 0;
  for (size_t i = 0; i + 2 < input.size(); ++i)
    requests += ByteAt(input, i) == kw::telnet::kIac && ByteAt(input, i + 1) >= kw::telnet::kWill;
  Require(whole.answers.size() / 3 <= requests, "no answer without a request");
  for (size_t i = 0; i < whole.answers.size(); i += 3) {
    Require(static_cast<uint8_t>(whole.answers[i]) == kw::telnet::kIac &&
                static_cast<uint8_t>(whole.answers[i + 1]) >= kw::telnet::kWill,
            "an answer is IAC WILL, WONT, DO or DONT");
  }
  for (const std::string& sub : whole.subs) {
    Require(!sub.empty() && sub.size() <= kw::TelnetCodec::kMaxSub, "subnegotiations are bounded");
  }
  for (int option = 0; option < 256; ++option) {
    const auto local = whole.codec.local(static_cast<uint8_t>(option));
    Require(local != kw::TelnetCodec::State::kAsked, "nothing was asked, so nothing is pending");
    Require(local == kw::TelnetCodec::State::kNo || option == 0 || option == 3 || option == 44,
            "only the options it takes are on");
  }

  // Cut where the first byte says: the same outcome.
  const size_t cut = input.empty() ? 0 : static_cast<uint8_t>(input[0]) % (input.size() + 1);
  Require(Decoded({input.substr(0, cut), input.substr(cut)}) == whole, "a cut changes nothing");

  // The bytes as data: escaped for the wire, they come back exactly, with nothing else.
  std::string wire;
  kw::TelnetCodec::Escape(input, &wire);
  const Decoded back({wire});
  Require(back.data == input && back.answers.empty() && back.subs.empty(),
          "escaped data decodes to itself");
}

}  // namespace kw::fuzz
