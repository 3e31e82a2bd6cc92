#include "sim/ucp_centre.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace kw::sim {
namespace {

/// Keeps what the centre does to its line.
class RecordingLine : public PeerLine {
 public:
  void SendAt(int64_t at_ms, const std::string& bytes) override { sent.emplace_back(at_ms, bytes); }
  void SetCarrier(bool high) override { carrier = high; }
  void Note(const std::string& text) override { notes.push_back(text); }

  std::string All() const {
    std::string all;
    for (const auto& [at, bytes] : sent) all += bytes;
    return all;
  }

  std::vector<std::pair<int64_t, std::string>> sent;
  std::vector<std::string> notes;
  bool carrier = true;
};

std::string Framed(const std::string& inner) { return "\x02" + inner + "\x03"; }

TEST(UcpCentreTest, ChecksTheFrameAndRefusesWhatItCantTrust) {
  struct Case {
    const char* name;
    std::string frame;
    const char* reply;  // between STX and ETX
    const char* note_end;
  };
  const Case cases[] = {
      {"good", Framed("01/00036/O/01/12345/678//3/616263/C0"), "01/00019/R/01/A//69",
       "text \"abc\", length ok, checksum ok"},
      {"bad checksum", Framed("01/00036/O/01/12345/678//3/616263/C1"), "01/00022/R/01/N/01//00",
       "length ok, checksum bad"},
      {"bad length", Framed("01/00035/O/01/12345/678//3/616263/BF"), "01/00022/R/01/N/02//01",
       "length bad, checksum ok"},
      {"unknown operation", Framed("01/00017/O/99//05"), "01/00022/R/99/N/03//13",
       "data \"\", length ok, checksum ok"},
      // The length field says 17 whatever the operation's width. The reply keeps the letter at
      // offset 15 all the same.
      {"empty operation", Framed("01/00017/O///93"), "01/00022/R/00/N/02//00",
       "data \"\", length bad, checksum ok"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    UcpCentre centre{UcpScenario{}};
    RecordingLine line;
    // Noise ahead of the frame, and the frame in two pieces.
    centre.OnBytes(0, "ATH" + c.frame.substr(0, 10), line);
    EXPECT_TRUE(line.sent.empty());
    centre.OnBytes(100, c.frame.substr(10), line);
    ASSERT_EQ(line.sent.size(), 1u);
    EXPECT_EQ(line.sent[0].first, 300);
    EXPECT_EQ(line.sent[0].second, Framed(c.reply));
    ASSERT_EQ(line.notes.size(), 3u);
    EXPECT_EQ(line.notes[0], "ucp: 3 byte(s) outside a frame ignored: ATH");
    const std::string& note = line.notes[1];
    EXPECT_EQ(note.substr(note.size() - std::string(c.note_end).size()), c.note_end);
  }
}

TEST(UcpCentreTest, DecodesTheFieldsOfEachOperation) {
  UcpCentre centre{UcpScenario{}};
  RecordingLine line;
  centre.OnBytes(0, Framed("01/00050/O/03/12345/678/pw/0///////////3/616263/DA"), line);
  centre.OnBytes(0, Framed("01/00036/O/01/12345/6/8//3/616263/B8"), line);
  ASSERT_EQ(centre.frames().size(), 2u);
  const UcpFrame& op03 = centre.frames()[0];
  EXPECT_EQ(op03.recipient + "|" + op03.sender + "|" + op03.auth + "|" + op03.text,
            "12345|678|pw|abc");
  // A "/" inside the sender shifts the fields: the text field then holds "3".
  const UcpFrame& shifted = centre.frames()[1];
  EXPECT_EQ(shifted.field_count, 6u);
  EXPECT_EQ(shifted.text, "3");
  EXPECT_FALSE(shifted.text_is_hex);
  EXPECT_NE(line.notes[2].find("6 fields (expected 5)"), std::string::npos);
}

TEST(UcpCentreTest, TakesItsScenarioFromOptions) {
  UcpCentre centre({{"letter", "N"},
                    {"code", "24"},
                    {"message", "too\\x20long"},
                    {"prefix", "\\r\\nX"},
                    {"delay_ms", "0"},
                    {"hangup_frame", "1"},
                    {"hangup_delay_ms", "500"},
                    {"say_no_carrier", "1"}});
  RecordingLine line;
  centre.OnBytes(1000, Framed("01/00036/O/01/12345/678//3/616263/C0"), line);
  EXPECT_EQ(line.All(), "\r\nNO CARRIER\r\n\r\nX" + Framed("01/00030/R/01/N/24/too long/26"));
  EXPECT_EQ(centre.NextTimerMs(), 1500);
  centre.OnTimer(1500, line);
  EXPECT_FALSE(line.carrier);

  for (const auto& bad : std::vector<std::map<std::string, std::string>>{
           {{"colour", "red"}}, {{"delay_ms", "soon"}}, {{"letter", "AN"}}, {{"strict", "2"}}}) {
    EXPECT_THROW(UcpCentre{bad}, std::invalid_argument) << bad.begin()->first;
  }
}

}  // namespace
}  // namespace kw::sim
