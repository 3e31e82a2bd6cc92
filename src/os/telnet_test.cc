#include "os/telnet.h"

#include <gtest/gtest.h>

namespace kw {

/// The bytes as a string, IAC and the rest written out.
std::string Bytes(std::initializer_list<int> bytes) { return {bytes.begin(), bytes.end()}; }

constexpr int kIac = 255, kWill = 251, kWont = 252, kDo = 253, kDont = 254, kSb = 250, kSe = 240;

// The client of a terminal server: it turns on binary, no go-aheads and the com port option for
// itself, and binary and no go-aheads for the server, and refuses everything else.
TEST(TelnetCodecTest, DecodesDataAnswersWhatChangesAndCollectsSubnegotiations) {
  const struct {
    std::string in, data, answers;
    std::string sub = "";   // the one subnegotiation collected, if any
    bool requests = false;  // its own first: WILL 44 twice (sent once) and DO 0
  } cases[] = {
      // IAC IAC is the byte; commands that mean nothing on a serial line, and junk, are dropped.
      {Bytes({kIac, kIac, 'x', kIac, 241, 'y', kIac, 0, 'z', kIac, kSe, 'w'}), "\xFFxyzw", ""},
      // Requests for options it takes: agreed once, repeats and answers to its own requests
      // not answered again.
      {Bytes({kIac, kDo, 44, kIac, kDo, 44}), "", Bytes({kIac, kWill, 44})},
      {Bytes({kIac, kWill, 0, kIac, kDo, 3}), "", Bytes({kIac, kDo, 0, kIac, kWill, 3})},
      // Answers to its own requests set the states: turned off again, 44 is answered; refused,
      // 0 is off and agreed when offered again.
      {Bytes({kIac, kDo, 44, kIac, kWont, 0, kIac, kDont, 44, kIac, kWill, 0}), "",
       Bytes({kIac, kWill, 44, kIac, kDo, 0, kIac, kWont, 44, kIac, kDo, 0}), "", true},
      // Options it doesn't take: refused, every time they are asked for.
      {Bytes({kIac, kWill, 1, kIac, kDo, 1, kIac, kWill, 1}), "",
       Bytes({kIac, kDont, 1, kIac, kWont, 1, kIac, kDont, 1})},
      // Turning off an option that is on is answered; one that is off, not.
      {Bytes({kIac, kDo, 0, kIac, kDont, 0, kIac, kDont, 0, kIac, kWont, 3}), "",
       Bytes({kIac, kWill, 0, kIac, kWont, 0})},
      // Subnegotiations, IAC undoubled inside; an empty or unclosed one is dropped.
      {Bytes({'x', kIac, kSb, 44, 107, 0x80, kIac, kSe, 'y'}), "xy", "", Bytes({44, 107, 0x80})},
      {Bytes({kIac, kSb, 44, 101, kIac, kIac, kIac, kSe}), "", "", Bytes({44, 101, 0xFF})},
      {Bytes({kIac, kSb, kIac, kSe, kIac, kSb, 44, 'z', kIac, kIac, 'q', kIac, 'c'}), "", ""},
      {Bytes({kIac, kSb, 44, 1, kIac, kDo, 0, 'd'}), "d", Bytes({kIac, kWill, 0})},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.in));
    // Fed whole, and byte by byte: a command cut in two is the same command.
    for (const size_t piece : {c.in.size(), size_t{1}}) {
      TelnetCodec codec({0, 3, 44}, {0, 3});
      std::string data, answers;
      std::vector<std::string> subs;
      if (c.requests) {
        for (int i = 0; i < 2; ++i) codec.OfferLocal(44, &answers);
        codec.AskRemote(0, &answers);
      }
      for (size_t i = 0; i < c.in.size(); i += piece)
        codec.Decode(c.in.substr(i, piece), &data, &answers, &subs);
      EXPECT_EQ(data, c.data);
      EXPECT_EQ(answers, c.answers);
      EXPECT_EQ(subs, std::vector<std::string>(c.sub.empty() ? 0 : 1, c.sub));
    }
  }
}

TEST(TelnetCodecTest, SubnegotiationsAndCommandsAreFramedWithIacDoubled) {
  EXPECT_EQ(TelnetCodec::Subnegotiation(44, "\x0C\xFF"),
            Bytes({kIac, kSb, 44, 12, kIac, kIac, kIac, kSe}));
  // 9600 baud, 8 data bits, no parity, 1 stop bit, no flow control, DTR on, RTS as asked, and
  // notices of every modem line.
  const auto sb = [](std::initializer_list<int> bytes) {
    return TelnetCodec::Subnegotiation(44, Bytes(bytes));
  };
  const std::string lines =
      sb({1, 0, 0, 0x25, 0x80}) + sb({2, 8}) + sb({3, 1}) + sb({4, 1}) + sb({5, 1}) + sb({5, 8});
  for (const bool rts : {true, false})
    EXPECT_EQ(ComPortSetUp(rts), lines + sb({5, rts ? 11 : 12}) + sb({11, 255}));
}

}  // namespace kw
