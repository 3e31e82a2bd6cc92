#include "os/serial_comm-posix.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <stdexcept>

#include "base/text.h"
#include "os/serial_errors.h"
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

  /// A port on the slave whose system calls are calls.
  std::unique_ptr<SerialComm> WithCalls(const PosixCalls& calls) {
    return NewPosixSerialComm(
        *runtime, [&](int16_t) { return slave; }, SystemPortLockFolder(), calls);
  }
  /// Writes the bytes at the master and waits until they wait at the port.
  void Arrive(const std::string& bytes) {
    ASSERT_EQ(write(master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    for (int i = 0; i < 2; ++i) runtime->WaitForEvent();
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

  // A second opener must leave the line exactly as it finds it: no settings, no flush.
  termios held = Line();  // raw, so that the bytes below wait unechoed
  held.c_cflag = foreign.c_cflag;
  ASSERT_EQ(tcsetattr(master, TCSANOW, &held), 0);
  Arrive("pending");
  EXPECT_EQ(Raised([&] { runtime->NewSerialComm()->SetPortOpen(true); }), 8005);
  EXPECT_EQ(Line().c_cflag, foreign.c_cflag);
  EXPECT_EQ(first->Input(), L"pending");
  // SetInBufferCount(0) drops the input that waits, in the port and in the driver; no other
  // count does.
  for (const int16_t count : {7, 0}) {
    Arrive("queue");
    runtime->DoEvents();  // into the port's own queue
    Arrive("driver");
    first->SetInBufferCount(count);
    Arrive("new");
    EXPECT_EQ(first->Input(), count == 0 ? L"new" : L"queuedrivernew");
  }

  const auto start = std::chrono::steady_clock::now();
  first->SetPortOpen(false);  // with nothing left to send, at once
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
  EXPECT_EQ(Line().c_cflag, foreign.c_cflag | HUPCL);  // HUPCL stays for whoever comes next

  // No port, or one locked by another program (alive, or fresh and empty: its writer may not
  // have finished), fails to open; a folder where no lock file can be made is noted, and the
  // port opens.
  TempFolder locks;
  const std::string lock_file = (locks.path / PortLockName(slave)).string();
  int notes = 0;
  const auto open = [&](const std::string& device, const std::string& lock_folder) {
    auto comm = NewPosixSerialComm(
        *runtime, [&](int16_t) { return device; }, lock_folder);
    comm->OnNotice = [&](const std::wstring&) { ++notes; };
    return RaisedWithCause([&] { comm->SetPortOpen(true); });
  };
  const std::string alive = PortLockText(getppid()), busy = "8005 busy: " + slave + ": in use by ";
  const std::string failures[][3] = {
      {"", alive, "8002 none: "},
      {slave, alive,
       busy + "process " + std::to_string(getppid()) + " (lock file " + lock_file + ")"},
      {slave, "", busy + "another program (lock file " + lock_file + ")"}};
  for (const auto& [device, lock_text, raised] : failures) {
    std::ofstream(lock_file) << lock_text;
    EXPECT_EQ(open(device, locks.path.string()), raised);
  }
  std::filesystem::remove(lock_file);
  EXPECT_EQ(open(slave, "/nonexistent"), "0");  // and the close left the port free
  EXPECT_EQ(notes, 1);
}

// Faults of a device that a pty can't show, through the system calls: reads and writes answer
// from a script whose last answer repeats (a pulled-out adapter gives EIO for ever), the rest is
// the pty's. The bytes that came before the loss are handed over first, then one lost-line
// notice; a write refused before any byte got out fails as a write instead, with no notice.
TEST_F(PosixSerialCommTest, ADeviceThatFailsHandsOverWhatCameBeforeThenOneNoCarrier) {
  struct Answer {
    std::string bytes;  // for a read; a write takes all it is given
    int error = 0;      // else: -1 with this errno
  };
  const Answer eio{"", EIO}, eintr{"", EINTR}, again{"", EAGAIN}, lost{"RING\r\n"};
  const struct {
    std::vector<Answer> reads, writes;
    int sends;  // of "AT"; the last one raises error
    int error;
    std::string input;
  } rows[] = {
      {{{"OK"}, eintr, {"\r\n"}, eio}, {}, 0, 0, std::string("OK\r\n") + kLostLineNotice},
      {{lost, eio}, {{}, eio}, 2, 0, lost.bytes + kLostLineNotice},
      {{lost, again}, {eintr, eio}, 1, 8020, lost.bytes},
  };
  for (const auto& row : rows) {
    size_t reads = 0, writes = 0;
    // The next answer: the bytes it reads in (a write takes all), or -1 with its errno. A loop
    // that keeps calling after the device is gone ends the test.
    const auto answer = [](const std::vector<Answer>& script, size_t& calls, void* in,
                           size_t size) -> ssize_t {
      if (++calls > 20) throw std::runtime_error("called again and again");
      const Answer next = script.empty() ? Answer{} : script[std::min(calls, script.size()) - 1];
      if ((errno = next.error) != 0) return -1;
      return in ? static_cast<ssize_t>(next.bytes.copy(static_cast<char*>(in), size)) : size;
    };
    PosixCalls calls;
    calls.poll = [](pollfd* fds, nfds_t count, int) {  // all ready
      for (nfds_t i = 0; i < count; ++i) fds[i].revents = fds[i].events;
      return static_cast<int>(count);
    };
    calls.read = [&](int, void* in, size_t n) { return answer(row.reads, reads, in, n); };
    calls.write = [&](int, auto, size_t n) { return answer(row.writes, writes, nullptr, n); };
    auto comm = WithCalls(calls);
    comm->SetPortOpen(true);
    int error = 0;
    for (int i = 0; i < row.sends; ++i) error = Raised([&] { comm->SetOutput(L"AT"); });
    EXPECT_EQ(error, row.error) << row.input;
    EXPECT_EQ(ToLine(comm->Input()), row.input);
    EXPECT_EQ(comm->Input(), L"");  // the notice once only
  }
}

// Modem-control lines, which a pty lacks, through the system calls: each change raises its event
// after the send event, in the order CTS, DSR, CD, ring, and CDHolding follows CD (no carrier when
// the lines can't be read); a handler that closes and reopens the port ends the delivery of the
// old opening's events. Output that waits in the driver (which a pty never reports) counts as
// waiting output.
TEST_F(PosixSerialCommTest, ModemLineChangesRaiseTheirEventsInOrderUntilAHandlerReopens) {
  int bits = 0, queued = 2;  // bytes that wait in the driver
  PosixCalls calls;
  calls.ioctl = [&](int fd, unsigned long request, void* argument) {
    if (request != TIOCMGET && request != TIOCOUTQ) return ioctl(fd, request, argument);
    *static_cast<int*>(argument) = request == TIOCMGET ? bits : queued;
    return request == TIOCMGET && bits < 0 ? (errno = EIO, -1) : 0;  // the lines can't be read
  };
  auto comm = WithCalls(calls);
  std::string events;
  comm->OnComm = [&] {
    events += std::to_string(comm->CommEvent());
    if (comm->CommEvent() == kCommEvCD && !comm->CDHolding()) {
      comm->SetPortOpen(false);
      comm->SetPortOpen(true);
    }
  };
  comm->SetSThreshold(1);
  comm->SetPortOpen(true);
  comm->SetOutput(L"AT");
  EXPECT_EQ(comm->OutBufferCount(), 2);
  queued = 0;
  for (const int now : {TIOCM_CTS | TIOCM_CD, TIOCM_DSR | TIOCM_CD | TIOCM_RI, TIOCM_DSR, 0, -1}) {
    bits = now;
    runtime->DoEvents();
    events += comm->CDHolding() ? "+" : "-";
  }
  EXPECT_EQ(events, "135+346+5-4--");
}

// A step of the opening that fails, through the system calls, gives its error with its cause (a
// port that another holds, one that is missing or no port, one that the user may not open,
// settings that can't be made), and leaves the port free. (The end-to-end tests of
// kestrawind-send show the commonest: a missing device, no permission, a hold with flock.)
TEST_F(PosixSerialCommTest, AnOpeningThatFailsAtAnyStepGivesItsErrorAndLeavesThePortFree) {
  const struct {
    std::string call;
    int error;
    std::string raised;  // the slave's path follows the cause
  } rows[] = {{"open", EBUSY, "8005 busy: Device or resource busy"},
              {"open", EPERM, "8002 no permission: Operation not permitted"},
              {"open", ENOTDIR, "8002 missing: Not a directory"},
              {"open", ENODEV, "8002 missing: No such device"},
              {"open", ENXIO, "8002 missing: No such device or address"},
              {"open", EISDIR, "8002 not a port: Is a directory"},
              {"open", EIO, "8002 other: Input/output error"},
              {"flock", ENOLCK, "8002 other: No locks available"},
              {"tcgetattr", EIO, "8015 other: Input/output error"},
              {"tcsetattr", EIO, "8015 other: Input/output error"}};
  for (const auto& row : rows) {
    // The row's call fails with its errno; the others are the system's.
    const auto fails = [&](const char* call) { return call == row.call && (errno = row.error); };
    PosixCalls calls;
    calls.open = [&](auto... a) { return fails("open") ? -1 : ::open(a...); };
    calls.flock = [&](auto... a) { return fails("flock") ? -1 : ::flock(a...); };
    calls.tcgetattr = [&](auto... a) { return fails("tcgetattr") ? -1 : ::tcgetattr(a...); };
    calls.tcsetattr = [&](auto... a) { return fails("tcsetattr") ? -1 : ::tcsetattr(a...); };
    auto comm = WithCalls(calls);
    std::string want = row.raised;
    want.insert(want.find(": ") + 2, slave + ": ");
    EXPECT_EQ(RaisedWithCause([&] { comm->SetPortOpen(true); }), want) << row.call;
    EXPECT_EQ(Raised([&] { runtime->NewSerialComm()->SetPortOpen(true); }), 0) << row.call;
  }
}

}  // namespace kw
