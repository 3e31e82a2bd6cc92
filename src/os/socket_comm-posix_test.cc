// The network ports through the POSIX runtime, against a server of the test's own on 127.0.0.1.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "os/runtime-posix.h"
#include "os/telnet.h"
#include "unit_util.h"

namespace kw {
namespace {

const std::string kIac = "\xFF";
const std::string kZero(1, '\0');
/// A com port command or notice: IAC SB 44, the bytes, IAC SE.
std::string Sb(const std::string& bytes) { return kIac + "\xFA," + bytes + kIac + "\xF0"; }

/// A runtime whose port entry is entry, and a listening socket on a free port of 127.0.0.1.
struct SocketCommTest : testing::Test {
  SocketCommTest() {
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};  // any free port
    bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listener, 4);
    socklen_t size = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    port = std::to_wstring(ntohs(address.sin_port));
  }
  ~SocketCommTest() override { close(client), close(listener); }
  /// Takes the next connection, waiting a second at most; false when none comes.
  bool Accept() {
    pollfd p{listener, POLLIN, 0};
    return poll(&p, 1, 1000) > 0 && (client = accept(listener, nullptr, nullptr)) >= 0;
  }
  /// Everything that has come from the program within 200 ms; "<EOF>" marks its close.
  std::string Read() {
    std::string got;
    char buffer[4096];
    for (pollfd p{client, POLLIN, 0}; poll(&p, 1, got.empty() ? 200 : 20) > 0;) {
      const ssize_t n = read(client, buffer, sizeof buffer);
      if (n <= 0) return got + "<EOF>";
      got.append(buffer, static_cast<size_t>(n));
    }
    return got;
  }
  void Write(const std::string& bytes) { write(client, bytes.data(), bytes.size()); }
  /// A port of the runtime whose received text goes to received.
  std::unique_ptr<SerialComm> NewComm() {
    auto comm = runtime->NewSerialComm();
    comm->SetRThreshold(1);
    comm->OnComm = [this, port = comm.get()] { received += port->Input(); };
    return comm;
  }
  /// Lets the runtime deliver until done, for 3 s at most.
  void Until(const std::function<bool()>& done) {
    for (const int64_t end = runtime->NowSeconds() + 3; !done() && runtime->NowSeconds() < end;) {
      runtime->WaitForEvent();
      runtime->DoEvents();
    }
  }

  int listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  int client = -1;
  std::wstring port, entry, received;
  std::unique_ptr<PollingRuntime> runtime = NewPollingRuntime([this](int16_t) { return entry; });
};

TEST_F(SocketCommTest, Rfc2217SetsTheLineUpFollowsTheCarrierAndDropsDtrBeforeClosing) {
  entry = L"rfc2217://127.0.0.1:" + port;
  auto comm = NewComm();
  comm->SetRTSEnable(true);
  // The server asks for the com port option and offers to echo, as terminal servers do.
  std::thread serve([&] {
    if (Accept()) Write(kIac + "\xFD," + kIac + "\xFB\x01" + Sb("k" + kZero) + "early");
  });
  comm->SetPortOpen(true);
  serve.join();
  // Binary and no go-aheads both ways, the com port option, a refusal of the echo, the set-up.
  EXPECT_EQ(Read(), kIac + "\xFB" + kZero + kIac + "\xFD" + kZero + kIac + "\xFB\x03" + kIac +
                        "\xFD\x03" + kIac + "\xFB," + kIac + "\xFE\x01" + ComPortSetUp(true));
  Until([&] { return !received.empty(); });
  comm->SetOutput(L"A\u00FF\r");
  EXPECT_EQ(Read(), "A\xFF\xFF\r");
  Write("B\xFF\xFF" + Sb("k\x80") + "C");
  Until([&] { return received.size() > 5; });
  EXPECT_EQ(received, L"earlyB\u00FFC");  // what came during the negotiation is kept
  EXPECT_TRUE(comm->CDHolding());
  Write(Sb("k\x08"));  // the carrier drops
  Until([&] { return !comm->CDHolding(); });
  EXPECT_FALSE(comm->CDHolding());
  comm->SetInBufferCount(0);
  comm->SetRTSEnable(false);
  EXPECT_EQ(Read(), Sb("\x0C\x01") + Sb("\x05\x0C"));
  comm->SetOutput(L"ATH");
  comm->SetPortOpen(false);
  EXPECT_EQ(Read(), "ATH" + Sb("\x05\x09") + "<EOF>");
}

TEST_F(SocketCommTest, ARawPortIsHeldAloneLosesTheLineWithTheConnectionAndNamesItsFailures) {
  entry = L"tcp://127.0.0.1:" + port;
  auto comm = NewComm();
  comm->SetPortOpen(true);
  ASSERT_TRUE(Accept());
  // A second run is turned away (the end-to-end runs show that it never reaches the server).
  EXPECT_EQ(RaisedWithCause([&] { runtime->NewSerialComm()->SetPortOpen(true); }),
            "8005 busy: 127.0.0.1:" + ToLine(port) + ": held by another run");
  comm->SetOutput(L"\xFF\r");
  EXPECT_EQ(Read(), "\xFF\r");
  Write("bye");
  close(std::exchange(client, -1));
  Until([&] { return received.size() > 3; });
  EXPECT_EQ(received, L"bye\r\nNO CARRIER\r\n");
  EXPECT_FALSE(comm->CDHolding());
  comm->SetPortOpen(false);

  // Without an entry, port n is the device /dev/ttyS<n-1>.
  const std::pair<std::wstring, std::string> failures[] = {
      {L"tcp://127.0.0.1:0", "8002 bad address: tcp://127.0.0.1:0: the port must be a number"},
      {L"tcp://name.invalid:1", "8002 unknown: name.invalid:1: "},
      {L"", "8002 missing: /dev/ttyS199: "}};
  for (const auto& [port_entry, want] : failures) {
    entry = port_entry;
    auto other = runtime->NewSerialComm();
    other->SetCommPort(200);
    EXPECT_EQ(RaisedWithCause([&] { other->SetPortOpen(true); }).substr(0, want.size()), want);
  }
}

}  // namespace
}  // namespace kw
