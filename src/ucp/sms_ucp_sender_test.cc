#include "ucp/sms_ucp_sender.h"

#include "line_fixture.h"

namespace kw {

/// The dial, the frame (between STX and ETX) that many times, the hang-up.
static std::string Sent(const std::string& frame, int times = 1) {
  return "ATDT0612345\r" + test::Times("\x02" + frame + "\x03", times) + "ATH";
}

// The text is checked before the recipient and the sender, all before the dial; the numbers only
// for operations 01, 03 and 30. After a pause of two seconds the frame goes out up to five times,
// each followed by five one-second polls; only the letter and the code at their offsets behind
// the first STX count.
TEST(UcpSendTest, BuildsTheFrameSendsItAndJudgesTheReply) {
  const std::string d16(16, '1'), d17(17, '1'), d40(40, '1'), a304(304, 'a');
  const std::string f01 = "01/00036/O/01/12345/678//3/616263/C0";  // no password in 01 and 30
  const std::string too_many = "[557] Too many retries. The message was not delivered.",
                    provider = "[559] Error received from provider : ";
  const test::RunCase cases[] = {
      {"", "ok", 3000, Sent(f01)},
      {"OpType=03", "ok", 3000, Sent("01/00050/O/03/12345/678/pw/0///////////3/616263/DA")},
      {"OpType=30", "ok", 3000, Sent("01/00040/O/30/12345/678////////616263/75")},
      {"OpType=99;to=" + d17 + ";SenderNumber=" + d17,
       provider + "Operation not supported by system.", 3000, Sent("01/00017/O/99//05")},
      {"SenderNumber=6/8", "ok", 3000, Sent("01/00036/O/01/12345/6/8//3/616263/B8")},  // as it is
      {"TextLength=6", "ok", 3000, Sent(f01)},
      {"TextLength=5", "[554] Message too long. Only 5 allowed for this provider.", 0, ""},
      {"TextLength=-1;text=", "[554] Message too long. Only -1 allowed for this provider.", 0, ""},
      {"to=" + d16 + ";SenderNumber=" + d16, "ok", 3000,
       Sent("01/00060/O/01/" + d16 + "/" + d16 + "//3/616263/39")},
      {"SenderNumber=" + d17, "[553] Sender phone number too long.", 0, ""},
      {"OpType=03;SenderNumber=" + d17, "[553] Sender phone number too long.", 0, ""},
      {"OpType=30;to=" + d17, "[552] Recipient phone number too long.", 0, ""},
      {"to=" + d17 + ";SenderNumber=" + d17, "[552] Recipient phone number too long.", 0, ""},
      {"to=" + d17 + ";SenderNumber=" + d17 + ";text=" + std::string(161, 'x'),
       "[554] Message too long. Only 320 allowed for this provider.", 0, ""},
      {"OpType=51;to=" + d40 + ";SenderNumber=" + d40, "ok", 3000,
       Sent("01/00137/O/51/" + d40 + "/" + d40 + "/pw///////////////3//616263/////////////4F")},
      // The checksum's 16-bit total: 32,736 for 304 letters, past 32,767 for 305.
      {"TextLength=32767;text=" + a304, "ok", 3000,
       Sent("01/00638/O/01/12345/678//3/" + test::Times("61", 304) + "/E0")},
      {"TextLength=32767;text=a" + a304, "[6] Kestrawind: Overflow", 0, ""},
      {"delay_ms=5500", "ok", 8000, Sent(f01, 2)},
      {"pieces=2;piece_gap_ms=1000", "ok", 4000, Sent(f01)},
      {"silent=1", too_many, 27000, Sent(f01, 5)},
      {"letter=a", too_many, 27000, Sent(f01, 5)},  // the letters count in capitals only
      {"letter=n;code=24", too_many, 27000, Sent(f01, 5)},
      {"prefix=\00201/00019/R/01/a//89\003", too_many, 27000, Sent(f01, 5)},
      {"letter=N;code=01", provider + "Checksum error.", 3000, Sent(f01)},
      {"letter=N;code=38", provider + "Message forwarded.", 3000, Sent(f01)},
      {"letter=N;code=28", provider, 3000, Sent(f01)},
      {"letter=N;truncate=17", provider, 3000, Sent(f01)},  // no code
      {"letter=N;code=24;truncate=18", provider, 3000, Sent(f01)},
      {"hangup_frame=1;hangup_delay_ms=2500;silent=1", "[558] Modem hung up unexpectedly.", 5000,
       Sent(f01)},
      // A hang-up in the pause (300 to 2000) no longer counts once the frame goes out.
      {"result=CONNECT\r\n\r\nNO CARRIER;chunks=2;chunk_gap=500;silent=1", too_many, 27000,
       Sent(f01, 5)},
      {"unplug", "[555] Port closed prematurely.", 300, "ATDT0612345\r"},
      {"silent=1;stop=6000", test::kStopped, 6000, Sent(f01)},
  };
  for (const test::RunCase& c : cases)
    test::ExpectRun({"Protocol=UCP;" + c.setup, c.want, c.ms, c.written});
  EXPECT_EQ(SmsUcpSender::UcpChecksum(L"\u00e9\u00e9"), L"D2");  // Windows-1252: 0xE9 each
}

// The hex itself is the line_text seed corpus's to judge.
TEST(IA5EncodeTest, EncodesTextInHexUpTo32766Characters) {
  EXPECT_EQ(IA5Encode(std::wstring(32766, L'a')).size(), 65532u);
  EXPECT_EQ(test::Outcome([] { IA5Encode(std::wstring(32767, L'a')); }),
            "[550] Error occured in IA5Encoding of message (Overflow)");
}

}  // namespace kw
