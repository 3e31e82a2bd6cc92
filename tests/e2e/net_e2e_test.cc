// The real program against modems and centres on the network, in real time: behind ser2net (raw
// and RFC 2217) in front of kestrawind-sim's pty, and against the simulator listening on TCP
// itself, all on the loopback address; and a port or an address that another run holds.
// scripts/test-windows runs them under Wine as well.
#include <unistd.h>

#include <cstdlib>
#include <thread>
#include <tuple>

#include "e2e/harness.h"
#include "gtest/gtest.h"

namespace kw::e2e {
namespace {

/// The dial, whose <CR> Sent merges with the TAP probes behind it.
const std::string kDial = std::string("ATDT") + kCentre;
/// A TAP login and block of "hello" to 0612345678.
const std::string kTapDialogue = "<CR><ESC>PG1<CR><STX>0612345678<CR>hello<CR><ETX>43=<CR>";
/// The frame of operation 01 for "hello" to 0612345678.
const std::string kUcpFrame = "<STX>01/00042/O/01/0612345678///3/68656C6C6F/32<ETX>";
const char kOp01[] = "OpType=01\r\nTextLength=320\r\n";

/// An ini that reaches the centre at the address directly.
std::string DirectIni(const std::string& protocol, const std::string& address,
                      const std::string& provider, int timeout = 20) {
  return "[Provider]\r\nProtocol=" + protocol + "\r\nSmsCenterAddress=" + address + "\r\n" +
         provider + "[Modem]\r\nConnectionTimeout=" + std::to_string(timeout) + "\r\n";
}

// Two sends each, as ser2net opens the pty for a client and closes it when the client goes.
// Over RFC 2217, 0xFF crosses telnet doubled and reaches the line once, and the line is 9600 8N1
// as the program asked, not ser2net's 19200 with 2 stop bits, which a raw link keeps.
TEST(NetE2E, TwoSendsThroughSer2netRawAndOverRfc2217PutThePtysBytesOnTheLine) {
  if (access("/usr/sbin/ser2net", X_OK) != 0) GTEST_SKIP() << "needs ser2net (install-deps)";
  const struct {
    bool rfc2217;
    std::string protocol, provider, second, sent;
  } cases[] = {
      {true, "tap", "", "y\xFF",
       kDial + kTapDialogue + "ATH" + kDial +
           "<CR><ESC>PG1<CR><STX>0612345678<CR>y\u00FF<CR><ETX>3:1<CR>ATH"},
      {false, "ucp", kOp01, "hello",
       kDial + "<CR>" + kUcpFrame + "ATH" + kDial + "<CR>" + kUcpFrame + "ATH"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.sent);
    Rig rig({"--centre", c.protocol, "--runs", "0", "--max-seconds", "60"});
    const Ser2net server(rig, c.rfc2217);
    rig.WriteIni(PortIni(c.protocol == "tap" ? "TAP" : "UCP", server.entry, c.provider));
    EXPECT_EQ(rig.Run({"0612345678", "hello"}).out, SuccessLine("hello"));
    rig.Transcript();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // ser2net closes the pty
    EXPECT_EQ(rig.Run({"0612345678", c.second}, {"kestrawind", {"LC_ALL=C.UTF-8"}}).out,
              SuccessLine(UnderWine() || !c.rfc2217 ? c.second : "y\u00FF"));
    const std::string transcript = rig.Transcript(" -- close\n", 2);
    EXPECT_EQ(Sent(transcript), c.sent) << transcript;
    // ser2net puts the pty's first settings (38400 8N1) back as it closes it, at times before
    // the simulator has read the last bytes; those are not the program's.
    EXPECT_EQ(Count(transcript, " -- line ") - Count(transcript, " -- line 38400 8N1\n"), 2)
        << transcript;
    EXPECT_EQ(Count(transcript, c.rfc2217 ? " -- line 9600 8N1\n" : " -- line 19200 8N2\n"), 2);
  }
}

// The second run gets 520 at once, long before a connect or a dial could time out (with room
// for sanitizers and load), and never reaches the line; the first call goes on. Its text is
// Windows-1252, which the line gets from the native and the Windows program alike; the arguments
// behind the recipient join with one blank, and a quoted one keeps its own blanks.
TEST(NetE2E, ASecondRunOnAHeldPortOrAddressGets520AtOnceAndTheFirstCallGoesOn) {
  for (const bool tcp : {false, true}) {
    SCOPED_TRACE(tcp);
    // On a pty, or listening on TCP (--runs 1 is the default).
    Rig rig({"--centre", "tap", tcp ? "--listen" : "--runs", tcp ? "127.0.0.1:0" : "1"});
    if (tcp) rig.WriteIni(PortIni("TAP", "tcp://" + rig.pty()));
    const RunOptions utf8{"kestrawind", {"LC_ALL=C.UTF-8"}};
    RunResult first;
    std::thread run([&] { first = rig.Run({"0612345678", "h\xE9llo  w\x80rld", "x"}, utf8); });
    rig.Transcript("> ATDT");  // the first run has the port
    const std::string lock =
        "/run/lock/LCK.." + (tcp ? "net:" + rig.pty() : "pts_" + rig.pty().substr(9));
    const std::string held = ReadFile(lock);
    const RunResult second = rig.Run({"0612345678", "other"});
    EXPECT_LT(second.ms, 2000);
    run.join();
    EXPECT_EQ(second.out, kPortTaken);
    EXPECT_EQ(first.out,
              SuccessLine(UnderWine() ? "h\xE9llo  w\x80rld x" : "h\u00E9llo  w\u20ACrld x"));
    // The block sums to 0x7D2; the transcript shows UTF-8.
    const std::string transcript = rig.Transcript();
    EXPECT_EQ(Sent(transcript), kDial +
                                    "<CR><ESC>PG1<CR><STX>0612345678<CR>h\u00E9llo  "
                                    "w\u20ACrld x<CR><ETX>7=2<CR>ATH")
        << transcript;
    EXPECT_EQ(Count(transcript, " -- open\n") + Count(transcript, "second connection"), 1);
    if (!UnderWine()) {  // the Windows program holds a named mutex instead
      EXPECT_EQ(std::atoi(held.c_str()), first.pid) << held;
      EXPECT_NE(access(lock.c_str(), F_OK), 0) << "the lock file outlived the run";
    }
  }
}

TEST(NetE2E, ADirectLinkSendsByTapAndUcpWithNoAtCommand) {
  const std::tuple<std::string, std::string, std::string> cases[] = {{"TAP", "", kTapDialogue},
                                                                     {"UCP", kOp01, kUcpFrame}};
  for (const auto& [protocol, provider, sent] : cases) {
    SCOPED_TRACE(protocol);
    const Rig rig(
        {"--centre", protocol == "TAP" ? "tap" : "ucp", "--listen", "127.0.0.1:0", "--no-modem"});
    rig.WriteIni(DirectIni(protocol, rig.pty(), provider));
    const std::string out = rig.Run({"/DEBUG", "0612345678", "hello"}).out;
    EXPECT_EQ(out.substr(out.rfind("Successfully")), SuccessLine("hello"));
    EXPECT_NE(out.find("\tConnecting to sms center (" + rig.pty() + ")\r\n"), std::string::npos);
    EXPECT_EQ(Sent(rig.Transcript()), sent);
  }
}

TEST(NetE2E, ARefusedAndAnUnansweredConnectionEndWithinTheTimeout) {
  FullListener unanswered;
  const std::tuple<int, std::string, std::string> cases[] = {
      {FreePort(), "Error: [524] The sms center refused the connection or can't be reached.",
       "Connection refused"},
      {unanswered.port, "Error: [523] Connection timed out. No response from sms center.",
       "Connection timed out"},
  };
  Rig rig;
  for (const auto& [port, line, reason] : cases) {
    SCOPED_TRACE(line);
    const std::string address = "127.0.0.1:" + std::to_string(port);
    rig.WriteIni(DirectIni("UCP", address, "TextLength=320\r\n", 2));
    const RunResult run = rig.Run({"/DEBUG", "0612345678", "hi"});
    EXPECT_LT(run.ms, 4000);
    EXPECT_EQ(run.out.substr(run.out.rfind("Error: ")), line + "\r\n");
    const std::string cause = "\tCause: " + address + ": " + (UnderWine() ? "" : reason);
    EXPECT_NE(run.out.find(cause), std::string::npos) << run.out;
  }
}

}  // namespace
}  // namespace kw::e2e
