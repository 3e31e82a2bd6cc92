#include "os/serial_comm-posix.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "base/text.h"
#include "unit_util.h"

namespace kw {

/// A pseudo-terminal whose slave is the serial port of a system runtime.
struct PosixSerialCommTest : testing::Test {
  PosixSerialCommTest() { grantpt(master), unlockpt(master), fcntl(master, F_SETFL, O_NONBLOCK); }
  ~PosixSerialCommTest() override { close(master); }
  /// The slave's termios, as the master sees it.
  termios Line() {
    termios t{};
    return tcgetattr(master, &t) == 0 ? t : termios{};
  }

  int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  const std::string slave = ptsname(master);
  std::unique_ptr<PollingRuntime> runtime =
      NewPollingRuntime([&](int16_t) { return FromLocale(slave); });
};

TEST_F(PosixSerialCommTest, CarriesBothWaysByteExactThenALostDeviceEndsInOneNoCarrier) {
  std::vector<int16_t> events;
  std::wstring received;
  std::string line;
  auto comm = runtime->NewSerialComm();
  comm->OnComm = [&] {
    events.push_back(comm->CommEvent());
    runtime->DoEvents();  // a handler that waits inside itself
    if (comm->CommEvent() == kCommEvReceive) received += comm->Input();
  };
  comm->SetRThreshold(1);
  comm->SetSThreshold(1);
  comm->SetPortOpen(true);
  // Delivers events until done(), reading what reaches the master, for three seconds at most.
  const auto run_until = [&](auto done) {
    for (const int64_t end = runtime->NowSeconds() + 3; !done() && runtime->NowSeconds() < end;) {
      runtime->WaitForEvent();
      runtime->DoEvents();
      char buffer[4096];
      for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;) line.append(buffer, n);
    }
    return done();
  };
  std::wstring text;
  for (int i = 0; i < 200000; ++i) text += L"AT\u20AC\u00FF\r"[i % 5];  // more than a pty holds
  comm->SetOutput(text);
  errno = EINTR;  // left by an earlier call: one that succeeds must not be repeated for it
  runtime->DoEvents();
  EXPECT_TRUE(events.empty());  // nothing has drained yet
  ASSERT_TRUE(run_until([&] { return line.size() == text.size() && !events.empty(); }));
  EXPECT_EQ(line, ToLine(text));

  ASSERT_EQ(write(master, "OK\x80\xE9\xFF\r\n", 7), 7);
  ASSERT_TRUE(run_until([&] { return received.size() >= 7; }));
  close(std::exchange(master, -1));
  ASSERT_TRUE(run_until([&] { return received.size() > 7; }));
  for (int i = 0; i < 3; ++i) runtime->DoEvents();
  EXPECT_EQ(received, L"OK\u20AC\u00E9\u00FF\r\n\r\nNO CARRIER\r\n");
  // Each event once, though the handler delivers events inside itself.
  EXPECT_EQ(events, (std::vector<int16_t>{kCommEvSend, kCommEvReceive, kCommEvReceive}));
  EXPECT_NO_THROW(comm->SetOutput(L"ATH\r"));
  EXPECT_FALSE(comm->CDHolding());
  // The hang-up stays signalled on the device; the wait must still last to the next second.
  const int64_t second = runtime->NowSeconds();
  runtime->WaitForEvent();
  EXPECT_GT(runtime->NowSeconds(), second);
}

TEST_F(PosixSerialCommTest, HoldsTheLineAloneClosesWithHangUpAndFailsOnWhatIsNotAFreePort) {
  termios foreign = Line();  // all things that an opener changes
  foreign.c_cflag &= ~HUPCL;
  foreign.c_lflag |= ICANON | ECHO;
  cfsetspeed(&foreign, B4800);
  ASSERT_EQ(tcsetattr(master, TCSANOW, &foreign), 0);
  auto first = runtime->NewSerialComm();
  first->SetPortOpen(true);
  EXPECT_EQ(Line().c_cflag & (CBAUD | CSIZE | PARENB | CSTOPB | CRTSCTS | CREAD | CLOCAL | HUPCL),
            static_cast<tcflag_t>(B9600 | CS8 | CREAD | CLOCAL | HUPCL));
  EXPECT_EQ(Line().c_lflag & (ICANON | ECHO), 0u);
  EXPECT_TRUE(first->CDHolding());  // a pty has no carrier line to lose

  // A second opener must leave the line exactly as it finds it: no settings, no flush.
  termios held = Line();  // raw, so that the bytes below wait unechoed
  held.c_cflag = foreign.c_cflag;
  ASSERT_EQ(tcsetattr(master, TCSANOW, &held), 0);
  ASSERT_EQ(write(master, "pending", 7), 7);
  for (int i = 0; i < 2; ++i) runtime->WaitForEvent();  // until the bytes wait at the port
  EXPECT_EQ(Raised([&] { runtime->NewSerialComm()->SetPortOpen(true); }), 8005);
  EXPECT_EQ(Line().c_cflag, foreign.c_cflag);
  EXPECT_EQ(first->Input(), L"pending");

  const auto start = std::chrono::steady_clock::now();
  first->SetPortOpen(false);  // with nothing left to send, at once
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
  EXPECT_FALSE(first->CDHolding());
  EXPECT_EQ(Line().c_cflag, foreign.c_cflag | HUPCL);  // HUPCL stays for whoever comes next
  EXPECT_EQ(Line().c_lflag, foreign.c_lflag);

  // What is not a port, or is locked by another program, fails to open; a folder where no lock
  // file can be made is noted, and the port opens.
  TempFolder locks;
  std::ofstream(locks.path / PortLockName(slave)) << PortLockText(getppid());  // alive
  int notes = 0;
  const auto open = [&](const std::string& device, const std::filesystem::path& lock_folder) {
    auto comm = NewPosixSerialComm(
        *runtime, [&](int16_t) { return device; }, lock_folder.string());
    comm->OnNotice = [&](const std::wstring&) { ++notes; };
    return Raised([&] { comm->SetPortOpen(true); });
  };
  for (const char* device : {"/nonexistent/ttyKW0", "/dev/null", ""})
    EXPECT_EQ(open(device, locks.path), 8002) << device;
  EXPECT_EQ(open(slave, locks.path), 8005);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(locks.path), {}), 1);  // none left
  EXPECT_EQ(notes, 0);
  EXPECT_EQ(open(slave, "/nonexistent"), 0);  // and the close left the port free
  EXPECT_EQ(notes, 1);
}

}  // namespace kw
