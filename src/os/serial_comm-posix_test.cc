#include "os/serial_comm-posix.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/error.h"
#include "base/text.h"

namespace kw {
namespace {

constexpr int16_t kPtyPort = 7;

/// Opens the port; the error number it raises, or 0 when it opened.
int32_t OpenError(SerialComm& comm) try {
  comm.SetPortOpen(true);
  return 0;
} catch (const Error& e) {
  return e.number();
}

/// A pseudo-terminal whose slave is port kPtyPort of the system runtime.
class PosixSerialCommTest : public ::testing::Test {
 protected:
  void SetUp() override {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_TRUE(master_ >= 0 && grantpt(master_) == 0 && unlockpt(master_) == 0 &&
                fcntl(master_, F_SETFL, O_NONBLOCK) == 0);
    slave_ = ptsname(master_);
    runtime_ = NewPollingRuntime(
        [this](int16_t port) { return port == kPtyPort ? FromLocale(slave_) : std::wstring(); });
  }
  void TearDown() override { close(master_); }

  /// An open component on the pty that records its events and what it receives in them.
  std::unique_ptr<PosixSerialComm> OpenComm(int16_t rthreshold = 1, int16_t sthreshold = 0) {
    auto comm = std::make_unique<PosixSerialComm>(
        *runtime_, [this](int16_t port) { return port == kPtyPort ? slave_ : std::string(); });
    comm->OnComm = [this, raw = comm.get()] {
      events_.push_back(raw->CommEvent());
      runtime_->DoEvents();  // a handler that waits inside itself
      if (raw->CommEvent() == kCommEvReceive) received_ += raw->Input();
    };
    comm->SetCommPort(kPtyPort);
    comm->SetRThreshold(rthreshold);
    comm->SetSThreshold(sthreshold);
    comm->SetPortOpen(true);
    return comm;
  }

  /// Runs the event loop until done(), for two seconds at most.
  template <typename Done>
  bool RunUntil(Done done) {
    for (const int64_t end = runtime_->NowSeconds() + 2; !done(); runtime_->DoEvents()) {
      if (runtime_->NowSeconds() > end) return false;
      runtime_->WaitForEvent();
    }
    return true;
  }

  /// Everything the master can read now.
  std::string MasterRead() {
    std::string bytes;
    char buffer[4096];
    for (ssize_t n; (n = read(master_, buffer, sizeof buffer)) > 0;) bytes.append(buffer, n);
    return bytes;
  }
  /// The slave's termios, as the master sees it.
  termios Line() {
    termios t{};
    EXPECT_EQ(tcgetattr(master_, &t), 0);
    return t;
  }

  int master_ = -1;
  std::string slave_;
  std::unique_ptr<PollingRuntime> runtime_;
  std::vector<int16_t> events_;
  std::wstring received_;
};

TEST_F(PosixSerialCommTest, OutputReachesTheLineByteExactThenRaisesSendOnce) {
  auto comm = OpenComm(0, 1);
  std::wstring text;
  for (int i = 0; i < 200000; ++i) text += L"AT\u20AC\u00FF\r"[i % 5];  // more than a pty holds
  comm->SetOutput(text);
  runtime_->DoEvents();
  EXPECT_TRUE(events_.empty());  // nothing has drained yet
  std::string line;
  ASSERT_TRUE(RunUntil([&] { return (line += MasterRead(), !events_.empty()); }));
  line += MasterRead();
  runtime_->DoEvents();
  EXPECT_EQ(line.substr(0, 5), "AT\x80\xFF\r");
  EXPECT_EQ(line, ToLine(text));
  EXPECT_EQ(events_, std::vector<int16_t>{kCommEvSend});
}

TEST_F(PosixSerialCommTest, HoldsTheLineAloneAndClosingRestoresItWithHangUp) {
  termios foreign = Line();  // all things that an opener changes
  foreign.c_cflag &= ~HUPCL;
  foreign.c_lflag |= ICANON | ECHO;
  cfsetspeed(&foreign, B4800);
  ASSERT_EQ(tcsetattr(master_, TCSANOW, &foreign), 0);
  auto first = OpenComm(0);
  EXPECT_EQ(Line().c_cflag & (CBAUD | CSIZE | PARENB | CSTOPB | CRTSCTS | CREAD | CLOCAL | HUPCL),
            static_cast<tcflag_t>(B9600 | CS8 | CREAD | CLOCAL | HUPCL));
  EXPECT_EQ(Line().c_lflag & (ICANON | ECHO), 0u);
  EXPECT_TRUE(first->CDHolding());  // a pty has no carrier line to lose

  // A second opener must leave the line exactly as it finds it: no settings, no flush.
  termios held = Line();  // raw, so that the bytes below wait unechoed
  held.c_cflag = foreign.c_cflag;
  ASSERT_EQ(tcsetattr(master_, TCSANOW, &held), 0);
  ASSERT_EQ(write(master_, "pending", 7), 7);
  pollfd p{first->WaitDescriptor(), POLLIN, 0};
  ASSERT_EQ(poll(&p, 1, 1000), 1);
  auto second = runtime_->NewSerialComm();
  second->SetCommPort(kPtyPort);
  EXPECT_EQ(OpenError(*second), 8005);
  EXPECT_EQ(OpenError(*first), 8005);
  EXPECT_EQ(Line().c_cflag, foreign.c_cflag);
  EXPECT_EQ(MasterRead(), "");
  EXPECT_EQ(first->Input(), L"pending");

  first->SetPortOpen(false);
  EXPECT_FALSE(first->CDHolding());
  EXPECT_EQ(Line().c_cflag, foreign.c_cflag | HUPCL);  // HUPCL stays for whoever comes next
  EXPECT_EQ(Line().c_lflag, foreign.c_lflag);
  EXPECT_EQ(OpenError(*first), 0);  // the lock went with the close
}

TEST_F(PosixSerialCommTest, OpeningFailsOnWhatIsNotAPort) {
  char file[] = "/tmp/kw-serial-XXXXXX";
  ASSERT_EQ(close(mkstemp(file)), 0);
  const std::pair<int16_t, std::string> cases[] = {
      {1, "/nonexistent/ttyKW0"}, {1, file}, {1, "/dev/null"}, {0, slave_}, {2, ""}};
  for (const auto& c : cases) {
    PosixSerialComm comm(*runtime_, [&](int16_t port) { return port == c.first ? c.second : ""; });
    comm.SetCommPort(c.first);
    EXPECT_EQ(OpenError(comm), 8002) << c.second;
    EXPECT_FALSE(comm.PortOpen()) << c.second;
  }
  unlink(file);
}

TEST_F(PosixSerialCommTest, ALockFileKeepsThePortAndAFolderThatCantBeWrittenIsNoted) {
  char folder[] = "/tmp/kw-locks-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string lock_file = std::string(folder) + "/" + PortLockName(slave_);
  const std::pair<std::string, int32_t> cases[] = {{folder, 8005}, {"/nonexistent", 0}};
  std::ofstream(lock_file) << PortLockText(getppid());  // another program holds the port
  for (const auto& [lock_folder, error] : cases) {
    PosixSerialComm comm(
        *runtime_, [&](int16_t) { return slave_; }, lock_folder);
    std::vector<std::wstring> notices;
    comm.OnNotice = [&](const std::wstring& text) { notices.push_back(text); };
    EXPECT_EQ(OpenError(comm), error) << lock_folder;
    EXPECT_EQ(comm.PortOpen(), error == 0);
    EXPECT_EQ(notices.size(), error == 0 ? 1u : 0u) << lock_folder;
  }
  unlink(lock_file.c_str());
  rmdir(folder);
}

TEST_F(PosixSerialCommTest, ReceivesAsWindows1252ThenALostDeviceEndsInOneNoCarrier) {
  auto comm = OpenComm();
  ASSERT_EQ(write(master_, "OK\x80\xE9\xFF\r\n", 7), 7);
  ASSERT_TRUE(RunUntil([&] { return received_.size() >= 7; }));
  EXPECT_EQ(received_, L"OK\u20AC\u00E9\u00FF\r\n");
  EXPECT_EQ(events_, std::vector<int16_t>{kCommEvReceive});  // once, despite nested delivery

  close(std::exchange(master_, -1));
  ASSERT_TRUE(RunUntil([&] { return received_.size() > 7; }));
  for (int i = 0; i < 3; ++i) runtime_->DoEvents();
  EXPECT_EQ(received_, L"OK\u20AC\u00E9\u00FF\r\n\r\nNO CARRIER\r\n");
  EXPECT_EQ(events_, std::vector<int16_t>(2, kCommEvReceive));
  EXPECT_NO_THROW(comm->SetOutput(L"ATH\r"));
  EXPECT_FALSE(comm->CDHolding());
  // The hang-up stays signalled on the device; the wait must still last to the next second.
  const int64_t second = runtime_->NowSeconds();
  runtime_->WaitForEvent();
  EXPECT_GT(runtime_->NowSeconds(), second);
}

// A port that takes not one byte after its opening refuses the write to the caller (the dial
// reports it), and no NO CARRIER that the modem never sent appears.
TEST_F(PosixSerialCommTest, DeviceGoneBeforeTheFirstByteRefusesTheWriteAndInventsNothing) {
  auto comm = OpenComm();
  close(std::exchange(master_, -1));
  int32_t refused = 0;
  try {
    comm->SetOutput(L"ATDT1\r");
  } catch (const Error& e) {
    refused = e.number();
  }
  EXPECT_EQ(refused, 8020);
  for (int i = 0; i < 3; ++i) runtime_->DoEvents();
  EXPECT_EQ(comm->Input(), L"");
  EXPECT_EQ(received_, L"");
  EXPECT_TRUE(events_.empty());
}

}  // namespace
}  // namespace kw
