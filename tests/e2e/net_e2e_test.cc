// The real program against modems and centres on the network, in real time: behind ser2net (raw
// and RFC 2217) in front of kestrawind-sim's pty, and against the simulator listening on TCP
// itself, all on the loopback address. scripts/test-windows runs them under Wine as well.
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <regex>
#include <thread>

#include "e2e/harness.h"
#include "e2e/net_rig.h"
#include "gtest/gtest.h"

namespace kw::e2e {
namespace {

const char kPortTaken[] =
    "Error: [520] Error opening com port. Make sure no other application is using this port.\r\n";
const std::string kSuccess = "Successfully sent message <hello> to recipient <0612345678>\r\n";
/// A TAP login and block of "hello" to 0612345678 with the password "secret".
const std::string kTapDialogue = "<CR><ESC>PG1secret<CR><STX>0612345678<CR>hello<CR><ETX>43=<CR>";
/// The frame of operation 01 for "hello" to 0612345678.
const std::string kUcpFrame = "<STX>01/00042/O/01/0612345678///3/68656C6C6F/32<ETX>";

/// An ini whose port 1 is the [Ports] entry.
std::string PortIni(const std::string& protocol, const std::string& entry,
                    const std::string& provider = "") {
  return "[Provider]\r\nProtocol=" + protocol + "\r\nSmsCenterNumber=" + kCentre + "\r\n" +
         provider + "[Modem]\r\nPort=1\r\nConnectionTimeout=20\r\n[Ports]\r\n1=" + entry + "\r\n";
}

/// An ini that reaches the centre at the address directly.
std::string DirectIni(const std::string& protocol, const std::string& address,
                      const std::string& provider = "", int timeout = 20) {
  return "[Provider]\r\nProtocol=" + protocol + "\r\nSmsCenterAddress=" + address + "\r\n" +
         provider + "[Modem]\r\nConnectionTimeout=" + std::to_string(timeout) + "\r\n";
}

/// What the program sent, a run of TAP probes counted once.
std::string SentOnce(const std::string& transcript) {
  return std::regex_replace(Sent(transcript), std::regex("(<CR>)+<ESC>"), "<CR><ESC>");
}

/// Seconds that a step takes.
double Seconds(const std::function<void()>& step) {
  const auto start = std::chrono::steady_clock::now();
  step();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(NetE2E, TwoTapSendsThroughSer2netOverRfc2217PutThePtysBytesOnTheLine) {
  Rig rig({"--centre", "tap", "--opt", "password=secret", "--runs", "0", "--max-seconds", "60"});
  Ser2net server(rig.File("."), rig.pty(), true);
  if (!server.installed()) GTEST_SKIP() << server.problem();
  ASSERT_EQ(server.problem(), "");
  rig.WriteIni(PortIni("TAP", server.Entry(), "Authentication=secret\r\n"));
  EXPECT_EQ(rig.Run({"0612345678", "hello"}).out, kSuccess);
  rig.Transcript();
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // ser2net closes the pty
  // 0xFF crosses telnet doubled, and reaches the line once.
  const RunResult second = rig.Run({"0612345678", "y\xFF"}, {{"LC_ALL=C.UTF-8"}});
  const std::string shown = UnderWine() ? "y\xFF" : "y\u00FF";
  EXPECT_EQ(second.out, "Successfully sent message <" + shown + "> to recipient <0612345678>\r\n");
  const std::string transcript = rig.Transcript(" -- close\n", 2);
  const std::string dial = std::string("ATDT") + kCentre + "<CR>";
  EXPECT_EQ(Sent(transcript), dial + kTapDialogue + "ATH" + dial +
                                  "<CR><ESC>PG1secret<CR><STX>0612345678<CR>y\u00FF<CR><ETX>"
                                  "3:1<CR>ATH")
      << transcript;
  EXPECT_EQ(Count(transcript, " -- open\n"), 2) << transcript;
  // The line is 9600 8N1 as the program asked, not ser2net's 19200 with 2 stop bits.
  EXPECT_EQ(Count(transcript, " -- line 9600 8N1\n"), 2) << transcript;
  EXPECT_EQ(Count(transcript, " -- line 19200"), 0) << transcript;
}

TEST(NetE2E, TwoUcpSendsThroughRawSer2netEachHangUpByClosing) {
  Rig rig({"--centre", "ucp", "--runs", "0", "--max-seconds", "60"});
  Ser2net server(rig.File("."), rig.pty(), false);
  if (!server.installed()) GTEST_SKIP() << server.problem();
  ASSERT_EQ(server.problem(), "");
  rig.WriteIni(PortIni("UCP", server.Entry(), "OpType=01\r\nTextLength=320\r\n"));
  for (int run = 1; run <= 2; ++run) {
    EXPECT_EQ(rig.Run({"0612345678", "hello"}).out, kSuccess);
    rig.Transcript(" -- close\n", run);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  const std::string transcript = rig.Transcript(" -- close\n", 2);
  const std::string call = std::string("ATDT") + kCentre + "<CR>" + kUcpFrame + "ATH";
  EXPECT_EQ(Sent(transcript), call + call) << transcript;
}

TEST(NetE2E, ASecondRunOnAHeldAddressGets520AtOnceAndNeverConnects) {
  Rig rig({"--listen", "127.0.0.1:0", "--centre", "tap", "--opt", "password=secret"});
  rig.WriteIni(PortIni("TAP", "tcp://" + rig.pty(), "Authentication=secret\r\n"));
  pid_t first_pid = 0;
  RunOptions first_options;
  first_options.started = [&first_pid](pid_t pid) { first_pid = pid; };
  RunResult first;
  std::thread run([&] { first = rig.Run({"0612345678", "hello"}, first_options); });
  rig.Transcript("> ATDT");
  const std::string lock = "/run/lock/LCK..net:" + rig.pty();
  const std::string held = ReadFile(lock);
  RunResult second;
  const double seconds = Seconds([&] { second = rig.Run({"0612345678", "other"}); });
  run.join();
  EXPECT_EQ(second.out, kPortTaken);
  // At once: long before a connect or a dial could time out, with room for sanitizers and load.
  EXPECT_LT(seconds, 2.0);
  EXPECT_EQ(first.out, kSuccess);
  const std::string transcript = rig.Transcript();
  EXPECT_EQ(Sent(transcript), std::string("ATDT") + kCentre + "<CR>" + kTapDialogue + "ATH");
  EXPECT_EQ(Count(transcript, " -- open\n"), 1) << transcript;
  EXPECT_EQ(Count(transcript, "second connection"), 0) << transcript;
  if (!UnderWine()) {  // the Windows program holds a named mutex instead
    EXPECT_EQ(std::atoi(held.c_str()), first_pid) << held;
    EXPECT_NE(access(lock.c_str(), F_OK), 0) << "the lock file outlived the run";
  }
}

TEST(NetE2E, ADirectLinkSendsByTapAndUcpWithNoAtCommand) {
  const struct {
    std::string protocol, provider, sent;
  } cases[] = {
      {"TAP", "Authentication=secret\r\n", kTapDialogue},
      {"UCP", "OpType=01\r\nTextLength=320\r\n", kUcpFrame},
      {"UCP", "OpType=51\r\nAuthentication=pw\r\nTextLength=320\r\n",
       "<STX>01/00071/O/51/0612345678//pw///////////////3//68656C6C6F/////////////15<ETX>"},
  };
  std::vector<std::unique_ptr<Rig>> rigs;
  for (const auto& c : cases) {
    std::vector<std::string> sim = {"--listen", "127.0.0.1:0", "--no-modem", "--centre", "ucp"};
    if (c.protocol == "TAP")
      sim = {"--listen", "127.0.0.1:0", "--no-modem",     "--centre",
             "tap",      "--opt",       "password=secret"};
    rigs.push_back(std::make_unique<Rig>(sim));
    rigs.back()->WriteIni(DirectIni(c.protocol, rigs.back()->pty(), c.provider));
  }
  std::vector<RunResult> results(rigs.size());
  std::vector<std::thread> runs;
  for (size_t i = 0; i < rigs.size(); ++i) {
    runs.emplace_back([&, i] { results[i] = rigs[i]->Run({"/DEBUG", "0612345678", "hello"}); });
  }
  for (std::thread& run : runs) run.join();
  for (size_t i = 0; i < rigs.size(); ++i) {
    SCOPED_TRACE(cases[i].sent);
    const std::string& out = results[i].out;
    EXPECT_EQ(out.substr(out.rfind("Successfully")), kSuccess);
    EXPECT_NE(out.find("\tConnecting to sms center (" + rigs[i]->pty() + ")\r\n"),
              std::string::npos);
    const std::string transcript = rigs[i]->Transcript();
    EXPECT_EQ(SentOnce(transcript), cases[i].sent) << transcript;
  }
}

TEST(NetE2E, ARefusedAndAnUnansweredConnectionEndWithinTheTimeout) {
  FullListener unanswered;
  const struct {
    int port;
    std::string line, reason;
  } cases[] = {
      {FreePort(), "Error: [524] The sms center refused the connection or can't be reached.",
       "Connection refused"},
      {unanswered.port(), "Error: [523] Connection timed out. No response from sms center.",
       "Connection timed out"},
  };
  Rig rig;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    const std::string address = "127.0.0.1:" + std::to_string(c.port);
    rig.WriteIni(DirectIni("UCP", address, "TextLength=320\r\n", 2));
    RunResult result;
    const double seconds = Seconds([&] { result = rig.Run({"/DEBUG", "0612345678", "hi"}); });
    EXPECT_LT(seconds, 4.0);
    EXPECT_EQ(result.out.substr(result.out.rfind("Error: ")), c.line + "\r\n");
    const std::string cause = "\tCause: " + address + ": " + (UnderWine() ? "" : c.reason);
    EXPECT_NE(result.out.find(cause), std::string::npos) << result.out;
  }
}

TEST(NetE2E, AddressesThatCantBeReadGet520AndAClearCause) {
  const struct {
    std::string entry, reason;
  } cases[] = {
      {"tcp://127.0.0.1", "the port number is missing"},
      {"tcp://127.0.0.1:0", "the port must be a number from 1 to 65535"},
      {"rfc2217://127.0.0.1:65536", "the port must be a number from 1 to 65535"},
      {"tcp://:3333", "the host is missing"},
      {"ssh://127.0.0.1:22", "unknown scheme \"ssh\": use tcp:// or rfc2217://"},
      {"tcp://::1:3333", "an IPv6 address must stand in brackets, as in [::1]:PORT"},
  };
  Rig rig;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.entry);
    rig.WriteIni(PortIni("TAP", c.entry));
    const std::string out = rig.Run({"/DEBUG", "0612345678", "hi"}).out;
    EXPECT_EQ(out.substr(out.rfind("Error: ")), kPortTaken);
    EXPECT_NE(out.find("\tCause: " + c.entry + ": " + c.reason + "\r\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("Sending : "), std::string::npos) << out;
  }
  rig.WriteIni(DirectIni("TAP", "[::1]"));
  EXPECT_EQ(rig.Run({"0612345678", "hi"}).out,
            "Error: [520] Error connecting to sms center. Make sure SmsCenterAddress is right and "
            "no other run is using it.\r\n");
}

}  // namespace
}  // namespace kw::e2e
