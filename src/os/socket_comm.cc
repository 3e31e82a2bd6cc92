#include "os/socket_comm.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "os/serial_errors.h"

namespace kw {
namespace {

using std::chrono::milliseconds;

/// The most that one look at the connection reads, so that a flood can't hold up the run.
constexpr size_t kMaxRead = 64 * 1024;
/// The most bytes kept for the wire: more output waits, and answers to negotiation are dropped.
constexpr size_t kMaxWire = 64 * 1024;
/// How long the system may take none of our bytes before the connection counts as broken.
constexpr milliseconds kStallLimit{10000};
/// How soon a wait looks again while bytes wait for room.
constexpr int kStallLookMs = 100;
/// How long a close lets queued bytes go, and then waits for the other side to close.
constexpr milliseconds kDrainLimit{500};
constexpr int64_t kLingerMs = 500;

}  // namespace

SocketComm::SocketComm(NetAddress address, int64_t connect_limit_ms)
    : address_(std::move(address)), connect_limit_ms_(connect_limit_ms) {}

int SocketComm::DeviceWaitLimitMs(bool) const { return wire_.empty() ? -1 : kStallLookMs; }

void SocketComm::OpenDevice(int16_t, bool rts_high) {
  const Clock::time_point deadline = Clock::now() + milliseconds(connect_limit_ms_);
  const std::wstring subject = address_.Text();
  // The lock comes before the connection: a run that loses never reaches the server, which
  // might otherwise throw the first run's connection off.
  std::wstring notice;
  std::unique_ptr<AddressLock> lock = LockAddress(subject, &notice);
  if (!lock) throw PortAlreadyOpen().WithCause(Cause::kBusy, subject, L"held by another run");
  if (!notice.empty() && OnNotice) OnNotice(notice);

  Socket socket = Socket::Connect(address_, connect_limit_ms_);
  wire_.clear();
  early_.clear();
  modem_state_ = 0;
  carrier_seen_ = false;
  telnet_.reset();
  socket_ = std::move(socket);
  if (address_.scheme == NetScheme::kRfc2217) {
    try {
      Negotiate(rts_high, deadline);
    } catch (...) {
      socket_.Close(0);
      throw;
    }
  }
  lock_ = std::move(lock);
  Watch(true);
}

void SocketComm::Negotiate(bool rts_high, Clock::time_point deadline) {
  const uint8_t binary = telnet::kBinary;
  const uint8_t no_go_ahead = telnet::kSuppressGoAhead;
  const uint8_t com_port = telnet::kComPort;
  telnet_ =
      std::make_unique<TelnetCodec>(std::initializer_list<uint8_t>{binary, no_go_ahead, com_port},
                                    std::initializer_list<uint8_t>{binary, no_go_ahead});
  std::string requests;
  // Binary both ways, so that CR and 0xFF cross unchanged; no go-aheads; the com port option.
  telnet_->OfferLocal(binary, &requests);
  telnet_->AskRemote(binary, &requests);
  telnet_->OfferLocal(no_go_ahead, &requests);
  telnet_->AskRemote(no_go_ahead, &requests);
  telnet_->OfferLocal(com_port, &requests);
  Queue(requests);
  // The commands may go only once the server has said DO.
  while (telnet_->local(com_port) == TelnetCodec::State::kAsked) {
    const bool alive = Push() && Pull(&early_);
    if (!alive) {
      throw InvalidPort().WithCause(Cause::kRefused, address_.Text(),
                                    L"the server closed the connection");
    }
    if (telnet_->local(com_port) != TelnetCodec::State::kAsked) break;
    const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
    if (left <= 0 || !socket_.Wait(false, left)) {
      throw InvalidPort().WithCause(Cause::kTimedOut, address_.Text(),
                                    L"no answer to the com port option");
    }
  }
  if (telnet_->local(com_port) == TelnetCodec::State::kYes) {
    Queue(ComPortSetUp(rts_high));
  } else if (OnNotice) {
    OnNotice(address_.Text() + L" refuses the com port option: the line keeps its settings.");
  }
  Push();
}

void SocketComm::CloseDevice() noexcept {
  Watch(false);
  if (!failed()) {
    // The last bytes of the program go first, then DTR drops: the modem hangs up after them.
    Drain(Clock::now() + kDrainLimit);
    ComPort(telnet::kSetControl, telnet::kDtrOff);
    Drain(Clock::now() + kDrainLimit);
  }
  socket_.Close(failed() ? 0 : kLingerMs);
  telnet_.reset();
  wire_.clear();
  lock_.reset();  // only now: the address is free once the connection is gone
}

void SocketComm::Drain(Clock::time_point deadline) noexcept {
  try {
    while (FlushOutput() && Push() && (output_queued() || !wire_.empty())) {
      const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
      if (left <= 0) return;
      socket_.Wait(true, std::min<int64_t>(left, 10), false);
    }
  } catch (...) {
  }
}

bool SocketComm::ReadAvailable(std::string* into) {
  into->append(early_);
  early_.clear();
  // What came before a loss is read first; then the answers of the decoding go out.
  const bool alive = Pull(into);
  return Push() && alive;
}

bool SocketComm::Pull(std::string* data) {
  std::string bytes;
  const bool alive = socket_.Receive(&bytes, kMaxRead);
  if (!telnet_) {
    data->append(bytes);
    return alive;
  }
  std::string answers;
  std::vector<std::string> subs;
  telnet_->Decode(bytes, data, &answers, &subs);
  // A server that floods us with requests gets no more answers than the wire can hold.
  if (wire_.size() + answers.size() <= kMaxWire) Queue(answers);
  for (const std::string& sub : subs) {
    const uint8_t option = static_cast<uint8_t>(sub[0]);
    if (option != telnet::kComPort || sub.size() < 3) continue;
    if (static_cast<uint8_t>(sub[1]) != telnet::kNotifyModemState + telnet::kServerOffset) continue;
    modem_state_ = static_cast<uint8_t>(sub[2]);
    if (modem_state_ & telnet::kStateCd) carrier_seen_ = true;
  }
  return alive;
}

void SocketComm::Queue(const std::string& bytes) {
  if (wire_.empty()) last_taken_ = Clock::now();
  wire_ += bytes;
}

void SocketComm::ComPort(uint8_t command, uint8_t value) {
  if (!telnet_ || telnet_->local(telnet::kComPort) != TelnetCodec::State::kYes) return;
  Queue(ComPortCommand(command, std::string(1, static_cast<char>(value))));
  Push();
}

bool SocketComm::Push() {
  while (!wire_.empty()) {
    const ptrdiff_t n = socket_.Send(wire_.data(), wire_.size());
    if (n < 0) return false;
    if (n == 0) break;
    wire_.erase(0, static_cast<size_t>(n));
    last_taken_ = Clock::now();
  }
  return wire_.empty() || Clock::now() - last_taken_ < kStallLimit;
}

ptrdiff_t SocketComm::Write(const char* data, size_t size) {
  if (wire_.size() >= kMaxWire) {
    if (!Push()) return -1;
    if (wire_.size() >= kMaxWire) return 0;
  }
  size = std::min(size, kMaxWire);
  std::string bytes;
  if (telnet_) {
    TelnetCodec::Escape(std::string_view(data, size), &bytes);
  } else {
    bytes.assign(data, size);
  }
  Queue(bytes);
  return Push() ? static_cast<ptrdiff_t>(size) : -1;
}

SerialCore::LineStatus SocketComm::ModemLines(unsigned* lines) {
  // A server in front of a device without modem lines (a pty) reports carrier detect low from
  // the start and never changes it: until it has once been high, the line counts as having none.
  if (!carrier_seen_) return LineStatus::kNoLines;
  *lines = ModemLinesOf(
      modem_state_, {telnet::kStateCts, telnet::kStateDsr, telnet::kStateCd, telnet::kStateRing});
  return LineStatus::kKnown;
}

void SocketComm::SetLine(ControlLine line, bool high) {
  if (line == ControlLine::kDtr) {
    ComPort(telnet::kSetControl, high ? telnet::kDtrOn : telnet::kDtrOff);
  } else {
    ComPort(telnet::kSetControl, high ? telnet::kRtsOn : telnet::kRtsOff);
  }
}

void SocketComm::PurgeInput() {
  early_.clear();
  ComPort(telnet::kPurgeData, telnet::kPurgeReceived);
  std::string dropped;
  Pull(&dropped);
}

}  // namespace kw
