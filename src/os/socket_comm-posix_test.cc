// The network ports through the POSIX runtime, against a server of the test's own on 127.0.0.1.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "os/runtime-posix.h"
#include "os/serial_errors.h"

namespace kw {
namespace {

/// A listening socket on a free port of 127.0.0.1, and the connection it takes.
struct Server {
  Server() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listener, 4);
    socklen_t size = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    port = ntohs(address.sin_port);
  }
  ~Server() {
    close(client);
    close(listener);
  }
  /// Takes the next connection; false when none waits.
  bool Accept() {
    client = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    return client >= 0;
  }
  /// Everything that has come from the program within ms; "<EOF>" marks its close.
  std::string Read(int ms = 200) {
    std::string got;
    char buffer[4096];
    for (pollfd p{client, POLLIN, 0}; poll(&p, 1, ms) > 0; ms = 20) {
      const ssize_t n = read(client, buffer, sizeof buffer);
      if (n <= 0) return got + "<EOF>";
      got.append(buffer, static_cast<size_t>(n));
    }
    return got;
  }
  void Write(const std::string& bytes) { write(client, bytes.data(), bytes.size()); }

  int listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  int client = -1;
  int port = 0;
};

/// The error that the call raises, as "number cause subject: reason"; "" when it raises none.
template <typename Call>
std::string Failure(Call call) try {
  call();
  return "";
} catch (const Error& e) {
  const std::wstring cause = e.CauseText();
  return std::to_string(e.number()) + " " + std::to_string(static_cast<int>(e.cause())) + " " +
         std::string(cause.begin(), cause.end());
}

const std::string kIac = "\xFF";
const std::string kZero(1, '\0');
/// A com port command or notice: IAC SB 44, the bytes, IAC SE.
std::string Sb(const std::string& bytes) { return kIac + "\xFA," + bytes + kIac + "\xF0"; }

struct SocketCommTest : testing::Test {
  Server server;
  std::wstring entry;
  std::unique_ptr<PollingRuntime> runtime = NewPollingRuntime([this](int16_t) { return entry; });
  /// A port of the runtime whose received text goes to received.
  std::unique_ptr<SerialComm> NewComm() {
    auto comm = runtime->NewSerialComm();
    SerialComm* port = comm.get();
    comm->SetRThreshold(1);
    comm->OnComm = [this, port] { received += port->Input(); };
    return comm;
  }
  /// Lets the runtime deliver until done, for 3 s at most.
  void Until(const std::function<bool()>& done) {
    for (const int64_t end = runtime->NowSeconds() + 3; !done() && runtime->NowSeconds() < end;) {
      runtime->WaitForEvent();
      runtime->DoEvents();
    }
  }
  std::wstring received;
};

TEST_F(SocketCommTest, Rfc2217SetsTheLineUpFollowsTheCarrierAndDropsDtrBeforeClosing) {
  entry = L"rfc2217://127.0.0.1:" + std::to_wstring(server.port);
  auto comm = NewComm();
  comm->SetRTSEnable(true);
  // The server asks for the com port option and offers to echo, as terminal servers do.
  std::thread serve([&] {
    for (int i = 0; i < 100 && !server.Accept(); ++i) usleep(10000);
    server.Write(kIac + "\xFD," + kIac + "\xFB\x01" + Sb("k" + kZero) + "early");
  });
  comm->SetPortOpen(true);
  serve.join();
  const std::string opening = kIac + "\xFB" + kZero + kIac + "\xFD" + kZero + kIac + "\xFB\x03" +
                              kIac + "\xFD\x03" + kIac + "\xFB," + kIac + "\xFE\x01" +
                              Sb(std::string("\x01\0\0%\x80", 5)) + Sb("\x02\x08") +
                              Sb("\x03\x01") + Sb("\x04\x01") + Sb("\x05\x01") + Sb("\x05\x08") +
                              Sb("\x05\x0B") + Sb("\x0B\xFF\xFF");
  EXPECT_EQ(server.Read(), opening);
  Until([&] { return !received.empty(); });
  EXPECT_EQ(received, L"early");   // what came during the negotiation is kept
  EXPECT_TRUE(comm->CDHolding());  // carrier low from the start: a device without lines

  comm->SetOutput(L"A\u00FF\r");
  EXPECT_EQ(server.Read(), "A\xFF\xFF\r");
  server.Write("B\xFF\xFF" + Sb("k\x80") + "C");
  Until([&] { return received.size() > 5; });
  EXPECT_EQ(received, L"earlyB\u00FFC");
  EXPECT_TRUE(comm->CDHolding());
  server.Write(Sb("k\x08"));  // the carrier drops
  Until([&] { return !comm->CDHolding(); });
  EXPECT_FALSE(comm->CDHolding());
  comm->SetInBufferCount(0);
  comm->SetRTSEnable(false);
  EXPECT_EQ(server.Read(), Sb("\x0C\x01") + Sb("\x05\x0C"));
  comm->SetOutput(L"ATH");
  comm->SetPortOpen(false);
  EXPECT_EQ(server.Read(), "ATH" + Sb("\x05\x09") + "<EOF>");
}

TEST_F(SocketCommTest, ARawPortIsHeldAloneLosesTheLineWithTheConnectionAndNamesItsFailures) {
  entry = L"tcp://127.0.0.1:" + std::to_wstring(server.port);
  auto comm = NewComm();
  comm->SetPortOpen(true);
  ASSERT_TRUE(server.Accept());
  // A second run never reaches the server.
  const std::wstring subject = entry.substr(6);
  EXPECT_EQ(Failure([&] { runtime->NewSerialComm()->SetPortOpen(true); }),
            "8005 4 " + std::string(subject.begin(), subject.end()) + ": held by another run");
  EXPECT_LT(accept(server.listener, nullptr, nullptr), 0);
  comm->SetOutput(L"\xFF\r");
  EXPECT_EQ(server.Read(), "\xFF\r");
  server.Write("bye");
  close(server.client);
  server.client = -1;
  Until([&] { return received.size() > 3; });
  EXPECT_EQ(received, L"bye\r\nNO CARRIER\r\n");
  EXPECT_TRUE(comm->PortOpen());
  EXPECT_FALSE(comm->CDHolding());
  comm->SetPortOpen(false);

  const struct {
    std::wstring entry;
    std::string failure;
  } cases[] = {
      {L"tcp://127.0.0.1:1", "8002 6 127.0.0.1:1: Connection refused"},
      {L"tcp://127.0.0.1:0", "8002 8 tcp://127.0.0.1:0: the port must be a number from 1 to 65535"},
      {L"tcp://name.invalid:1", "8002 5 name.invalid:1: "},
  };
  for (const auto& c : cases) {
    entry = c.entry;
    const std::string failure = Failure([&] { runtime->NewSerialComm()->SetPortOpen(true); });
    EXPECT_EQ(failure.substr(0, c.failure.size()), c.failure);
  }
  EXPECT_EQ(
      Failure([&] { runtime->NewConnectionComm(NetAddress{}, 0)->SetPortOpen(true); }).substr(0, 4),
      "8002");
}

}  // namespace
}  // namespace kw
