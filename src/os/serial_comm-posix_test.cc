#include "os/serial_comm-posix.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "base/error.h"
#include "base/text.h"
#include "os/system_runtime.h"

namespace kw {
namespace {

constexpr int16_t kPtyPort = 7;

int64_t MonotonicNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000000LL + now.tv_nsec;
}

// A pseudo-terminal whose slave is the port's device, and the system runtime that finds it as
// port kPtyPort through its resolver.
class PosixSerialCommTest : public ::testing::Test {
 protected:
  void SetUp() override {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master_, 0);
    ASSERT_EQ(grantpt(master_), 0);
    ASSERT_EQ(unlockpt(master_), 0);
    char name[128];
    ASSERT_EQ(ptsname_r(master_, name, sizeof name), 0);
    slave_ = name;
    ASSERT_EQ(fcntl(master_, F_SETFL, O_NONBLOCK), 0);
    runtime_ = NewSystemRuntime(
        [this](int16_t port) { return port == kPtyPort ? FromLocale(slave_) : std::wstring(); });
  }
  void TearDown() override {
    if (master_ >= 0) close(master_);
  }

  // A component on the pty that records its events and everything it receives in them.
  std::unique_ptr<SerialComm> OpenComm(int16_t rthreshold = 1, int16_t sthreshold = 0) {
    auto comm = runtime_->NewSerialComm();
    SerialComm* raw = comm.get();
    raw->OnComm = [this, raw] {
      events_.push_back(raw->CommEvent());
      if (raw->CommEvent() == kCommEvReceive) received_ += raw->Input();
    };
    comm->SetCommPort(kPtyPort);
    comm->SetRThreshold(rthreshold);
    comm->SetSThreshold(sthreshold);
    comm->SetPortOpen(true);
    return comm;
  }

  // Runs the event loop until done() or a second has passed.
  template <typename Done>
  bool RunUntil(Done done) {
    const int64_t deadline = MonotonicNs() + 1000000000;
    while (!done()) {
      if (MonotonicNs() > deadline) return false;
      runtime_->WaitForEvent();
      runtime_->DoEvents();
    }
    return true;
  }

  // Waits until the component's device has input for it, without reading it.
  static bool DeviceReadable(SerialComm& comm) {
    pollfd p{dynamic_cast<EventSource&>(comm).WaitDescriptor(), POLLIN, 0};
    return poll(&p, 1, 1000) == 1 && (p.revents & POLLIN);
  }

  void MasterWrite(const std::string& bytes) {
    ASSERT_EQ(write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  std::string MasterRead() {
    std::string bytes;
    char buffer[4096];
    ssize_t n;
    while ((n = read(master_, buffer, sizeof buffer)) > 0) bytes.append(buffer, n);
    return bytes;
  }
  termios LineSettings() {
    termios t{};
    EXPECT_EQ(tcgetattr(master_, &t), 0);  // on the master, this is the slave's termios
    return t;
  }

  int master_ = -1;
  std::string slave_;
  std::unique_ptr<Runtime> runtime_;
  std::vector<int16_t> events_;
  std::wstring received_;
};

int32_t OpenError(SerialComm& comm) {
  try {
    comm.SetPortOpen(true);
  } catch (const Error& e) {
    EXPECT_EQ(e.source(), L"Kestrawind");
    return e.number();
  }
  return 0;
}

TEST_F(PosixSerialCommTest, ReceivesLineBytesAsWindows1252) {
  auto comm = OpenComm();
  MasterWrite("OK\x80\xE9\xFF\r\n");
  ASSERT_TRUE(RunUntil([&] { return received_.size() >= 7; }));
  EXPECT_EQ(received_, L"OK\u20AC\u00E9\u00FF\r\n");
  EXPECT_EQ(events_, std::vector<int16_t>(events_.size(), kCommEvReceive));
}

TEST_F(PosixSerialCommTest, NestedDeliveryDoesNotRaiseTheSameInputAgain) {
  auto comm = OpenComm();
  comm->OnComm = [&] {
    events_.push_back(comm->CommEvent());
    runtime_->DoEvents();  // a handler that waits inside itself
    EXPECT_EQ(comm->CommEvent(), kCommEvReceive);
    received_ += comm->Input();
  };
  MasterWrite("RING");
  ASSERT_TRUE(RunUntil([&] { return received_ == L"RING"; }));
  EXPECT_EQ(events_, std::vector<int16_t>{kCommEvReceive});
}

TEST_F(PosixSerialCommTest, OutputReachesTheLineByteExactThenRaisesSendOnce) {
  auto comm = OpenComm(0, 1);
  std::wstring text;
  for (int i = 0; i < 200000; ++i) text += L"AT\u20AC\u00FF\r"[i % 5];
  comm->SetOutput(text);
  EXPECT_GT(comm->OutBufferCount(), 0);  // more than a pty holds
  runtime_->DoEvents();
  EXPECT_TRUE(events_.empty());  // nothing has drained yet

  std::string line;
  ASSERT_TRUE(RunUntil([&] {
    line += MasterRead();
    return !events_.empty();
  }));
  line += MasterRead();
  runtime_->DoEvents();  // drained once, raised once
  EXPECT_EQ(line.size(), text.size());
  EXPECT_EQ(line.substr(0, 5), "AT\x80\xFF\r");
  EXPECT_EQ(line, ToLine(text));
  EXPECT_EQ(events_, std::vector<int16_t>{kCommEvSend});
  EXPECT_EQ(comm->OutBufferCount(), 0);
}

TEST_F(PosixSerialCommTest, SecondOpenerFailsWithoutTouchingTheLine) {
  auto first = OpenComm(0);
  termios held = LineSettings();
  cfsetispeed(&held, B4800);  // values that the second opener would overwrite
  cfsetospeed(&held, B4800);
  held.c_cflag &= ~HUPCL;
  ASSERT_EQ(tcsetattr(master_, TCSANOW, &held), 0);
  MasterWrite("pending");
  ASSERT_TRUE(DeviceReadable(*first));

  auto second = runtime_->NewSerialComm();
  second->SetCommPort(kPtyPort);
  EXPECT_EQ(OpenError(*second), 8005);
  EXPECT_FALSE(second->PortOpen());
  EXPECT_EQ(OpenError(*first), 8005);  // and the holder itself can't open it twice

  const termios after = LineSettings();
  EXPECT_EQ(cfgetospeed(&after), B4800);
  EXPECT_EQ(after.c_cflag, held.c_cflag);
  EXPECT_EQ(after.c_iflag, held.c_iflag);
  EXPECT_EQ(after.c_lflag, held.c_lflag);
  EXPECT_EQ(MasterRead(), "");
  EXPECT_EQ(first->Input(), L"pending");  // not flushed
}

TEST_F(PosixSerialCommTest, OpeningFailsOnWhatIsNotAPort) {
  char file[] = "/tmp/kw-serial-XXXXXX";
  const int file_fd = mkstemp(file);
  ASSERT_GE(file_fd, 0);
  close(file_fd);
  const struct {
    const char* label;
    int16_t port;
    std::string device;
  } cases[] = {
      {"missing device", 1, "/nonexistent/ttyKW0"},
      {"regular file", 1, file},
      {"not a terminal", 1, "/dev/null"},
      {"port 0", 0, slave_},
      {"no device", 2, ""},
  };
  for (const auto& c : cases) {
    PosixSerialComm comm(*runtime_, [&](int16_t port) { return port == c.port ? c.device : ""; });
    comm.SetCommPort(c.port);
    EXPECT_EQ(OpenError(comm), 8002) << c.label;
    EXPECT_FALSE(comm.PortOpen()) << c.label;
  }
  unlink(file);
}

TEST_F(PosixSerialCommTest, ClosingRestoresTheLineWithHangUpAndReleasesIt) {
  termios before = LineSettings();
  before.c_cflag &= ~HUPCL;
  before.c_lflag |= ICANON | ECHO;
  cfsetispeed(&before, B4800);
  cfsetospeed(&before, B4800);
  ASSERT_EQ(tcsetattr(master_, TCSANOW, &before), 0);

  auto comm = OpenComm();
  const termios open = LineSettings();
  EXPECT_EQ(cfgetospeed(&open), B9600);
  EXPECT_EQ(open.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS | CREAD | CLOCAL | HUPCL),
            static_cast<tcflag_t>(CS8 | CREAD | CLOCAL | HUPCL));
  EXPECT_EQ(open.c_iflag & (IXON | IXOFF), 0u);
  EXPECT_EQ(open.c_lflag & (ICANON | ECHO), 0u);
  EXPECT_EQ(open.c_cc[VMIN], 0);
  EXPECT_TRUE(comm->CDHolding());  // a pty has no carrier line to lose

  comm->SetPortOpen(false);
  comm->SetPortOpen(false);  // closing a closed port does nothing
  EXPECT_FALSE(comm->PortOpen());
  EXPECT_FALSE(comm->CDHolding());
  const termios closed = LineSettings();
  EXPECT_EQ(cfgetospeed(&closed), B4800);
  EXPECT_EQ(closed.c_lflag & (ICANON | ECHO), static_cast<tcflag_t>(ICANON | ECHO));
  EXPECT_NE(closed.c_cflag & HUPCL, 0u);

  auto other = OpenComm();  // the lock went with the close
  EXPECT_TRUE(other->PortOpen());
  other.reset();
  comm->SetPortOpen(true);
  EXPECT_TRUE(comm->PortOpen());
}

TEST_F(PosixSerialCommTest, LostDeviceEndsInOneNoCarrierAndNoBusyWait) {
  auto comm = OpenComm();
  close(master_);
  master_ = -1;
  ASSERT_TRUE(RunUntil([&] { return !received_.empty(); }));
  for (int i = 0; i < 3; ++i) runtime_->DoEvents();
  EXPECT_EQ(received_, L"\r\nNO CARRIER\r\n");
  EXPECT_EQ(events_, std::vector<int16_t>{kCommEvReceive});
  EXPECT_EQ(dynamic_cast<EventSource&>(*comm).WaitDescriptor(), -1);
  EXPECT_NO_THROW(comm->SetOutput(L"ATH\r"));
  EXPECT_FALSE(comm->CDHolding());

  // The hang-up stays signalled on the device; the wait must still last to the next second.
  const int64_t second = (MonotonicNs() / 1000000000 + 1) * 1000000000;
  runtime_->WaitForEvent();
  EXPECT_GE(MonotonicNs(), second);
  EXPECT_NO_THROW(comm->SetPortOpen(false));
}

TEST_F(PosixSerialCommTest, ClearingInputDropsQueuedAndWaitingBytes) {
  auto comm = OpenComm(0);
  MasterWrite("old1");
  ASSERT_TRUE(DeviceReadable(*comm));
  runtime_->DoEvents();  // into the component's own queue
  MasterWrite("old2");
  ASSERT_TRUE(DeviceReadable(*comm));  // and some in the driver
  comm->SetInBufferCount(0);
  MasterWrite("new");
  ASSERT_TRUE(DeviceReadable(*comm));
  EXPECT_EQ(comm->Input(), L"new");
  EXPECT_EQ(comm->Input(), L"");
}

TEST_F(PosixSerialCommTest, WaitForEventReturnsWhenDataArrivesWithoutDelivering) {
  auto comm = OpenComm();
  // Far enough from a second boundary that only the data can end the wait early.
  if (1000000000 - MonotonicNs() % 1000000000 < 100000000) runtime_->Sleep(120);
  const int64_t second = (MonotonicNs() / 1000000000 + 1) * 1000000000;
  MasterWrite("+");
  runtime_->WaitForEvent();
  EXPECT_LT(MonotonicNs(), second);
  EXPECT_TRUE(events_.empty());
  runtime_->DoEvents();
  EXPECT_EQ(received_, L"+");
}

}  // namespace
}  // namespace kw
