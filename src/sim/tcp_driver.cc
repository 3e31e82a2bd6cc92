#include "sim/tcp_driver.h"

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <stdexcept>
#include <vector>

#include "base/error.h"
#include "base/text.h"
#include "sim/sim_modem.h"

namespace kw::sim {
namespace {

/// The numeric host and the port of "HOST:PORT" ("[V6]:PORT"); raises std::invalid_argument.
std::pair<std::string, std::string> SplitAddress(const std::string& text) {
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon + 1 == text.size()) {
    throw std::invalid_argument("--listen wants HOST:PORT, got \"" + text + "\"");
  }
  std::string host = text.substr(0, colon);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  return {host, text.substr(colon + 1)};
}

/// "HOST:PORT" of a bound socket.
std::string BoundAddress(int fd) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    ThrowSystem("getsockname");
  }
  char host[NI_MAXHOST];
  char port[NI_MAXSERV];
  if (getnameinfo(reinterpret_cast<sockaddr*>(&address), size, host, sizeof host, port, sizeof port,
                  NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    ThrowSystem("getnameinfo");
  }
  const bool v6 = address.ss_family == AF_INET6;
  return (v6 ? "[" + std::string(host) + "]" : std::string(host)) + ":" + port;
}

/// A com port command of the server: the client's command number plus 100, the same value.
std::string ServerAnswer(const std::string& sub) {
  return TelnetCodec::Subnegotiation(
      telnet::kComPort,
      std::string(1, static_cast<char>(static_cast<uint8_t>(sub[1]) + telnet::kServerOffset)) +
          sub.substr(2));
}

}  // namespace

TcpDriver::TcpDriver(Peer& peer, const TcpOptions& options)
    : peer_(peer),
      timed_(dynamic_cast<TimedPeer*>(&peer)),
      mode_(options.mode),
      start_ns_(MonotonicNs()) {
  const auto [host, port] = SplitAddress(options.listen);
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  addrinfo* list = nullptr;
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &list) != 0 || !list) {
    throw std::invalid_argument("--listen wants a numeric host and a port, got \"" +
                                options.listen + "\"");
  }
  listener_ = UniqueFd(socket(list->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const int on = 1;
  const bool bound = listener_.get() >= 0 &&
                     setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
                     bind(listener_.get(), list->ai_addr, list->ai_addrlen) == 0 &&
                     listen(listener_.get(), 4) == 0;
  freeaddrinfo(list);
  if (!bound) ThrowSystem("listen on " + options.listen);
  address_ = BoundAddress(listener_.get());
  if (!options.transcript_path.empty()) transcript_.Open(options.transcript_path);
}

TcpDriver::~TcpDriver() = default;

RunEnd TcpDriver::Run(const RunLimits& limits) {
  const int64_t deadline = NowMs() + limits.max_ms;
  const int closes_before = closes_;
  for (;;) {
    const int64_t now = NowMs();
    if (timed_ && client_.get() >= 0) {
      const int64_t due = timed_->NextTimerMs();
      if (due != kNoTimer && due <= now) timed_->OnTimer(now, *this);
    }
    MoveDue(now);
    WriteOut();
    if (closing_ && scheduled_.empty() && out_.empty()) {
      Transcript("#", "the centre closes the connection");
      Closed();
    }
    if (limits.runs > 0 && closes_ - closes_before >= limits.runs) return RunEnd::kRunsDone;
    if (now >= deadline) return RunEnd::kTimeLimit;

    int64_t wake = deadline;
    if (!scheduled_.empty()) wake = std::min(wake, scheduled_.begin()->first.first);
    if (timed_ && client_.get() >= 0 && timed_->NextTimerMs() != kNoTimer) {
      wake = std::min(wake, timed_->NextTimerMs());
    }
    pollfd fds[3] = {{listener_.get(), POLLIN, 0}, {limits.stop_fd, POLLIN, 0}, {-1, 0, 0}};
    if (client_.get() >= 0) {
      fds[2] = {client_.get(), static_cast<short>(POLLIN | (out_.empty() ? 0 : POLLOUT)), 0};
    }
    // At least 1 ms, so that a peer whose timer stays in the past can't make the loop spin.
    const int64_t timeout = std::clamp<int64_t>(wake - now, 1, INT_MAX);
    if (poll(fds, 3, static_cast<int>(timeout)) < 0) {
      if (errno == EINTR) continue;
      ThrowSystem("poll");
    }
    if (fds[1].revents != 0) return RunEnd::kStopped;
    if (fds[2].revents & (POLLIN | POLLHUP | POLLERR)) ReadClient();
    if (fds[0].revents & POLLIN) Accept();
  }
}

void TcpDriver::Accept() {
  UniqueFd client(accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (client.get() < 0) return;
  if (client_.get() >= 0) {
    Transcript("#", "turned a second connection away");
    return;
  }
  client_ = std::move(client);
  hung_up_ = false;
  closing_ = false;
  Transcript("--", "open");
  if (mode_ != TcpMode::kTelnet) return;
  // An access server offers what ser2net-like servers offer, and asks for the com port option.
  telnet_ = std::make_unique<TelnetCodec>(
      std::initializer_list<uint8_t>{telnet::kBinary, telnet::kSuppressGoAhead},
      std::initializer_list<uint8_t>{telnet::kBinary, telnet::kSuppressGoAhead, telnet::kComPort});
  telnet_->OfferLocal(telnet::kBinary, &out_);
  telnet_->AskRemote(telnet::kBinary, &out_);
  telnet_->OfferLocal(telnet::kSuppressGoAhead, &out_);
  telnet_->AskRemote(telnet::kSuppressGoAhead, &out_);
  telnet_->AskRemote(telnet::kComPort, &out_);
}

void TcpDriver::ReadClient() {
  char buffer[4096];
  for (;;) {
    const ssize_t n = recv(client_.get(), buffer, sizeof buffer, 0);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (n <= 0) {
      Closed();
      return;
    }
    std::string data(buffer, static_cast<size_t>(n));
    if (telnet_) {
      // A byte at a time, so that data and commands reach the modem in the order they came:
      // "ATH" before the DTR drop that follows it.
      std::string decoded;
      for (const char byte : data) {
        std::vector<std::string> subs;
        telnet_->Decode(std::string_view(&byte, 1), &decoded, &out_, &subs);
        if (subs.empty()) continue;
        Deliver(decoded);
        decoded.clear();
        ComPort(subs.front());
      }
      data = decoded;
    }
    Deliver(data);
  }
}

void TcpDriver::Deliver(const std::string& data) {
  if (data.empty() || hung_up_) return;
  Transcript(">", Readable(data));
  peer_.OnBytes(NowMs(), data, *this);
}

void TcpDriver::ComPort(const std::string& sub) {
  if (static_cast<uint8_t>(sub[0]) != telnet::kComPort || sub.size() < 3) return;
  out_ += ServerAnswer(sub);
  const uint8_t command = static_cast<uint8_t>(sub[1]);
  const uint8_t value = static_cast<uint8_t>(sub[2]);
  if (command == telnet::kSetBaudRate && sub.size() == 6) {
    uint32_t baud = 0;
    for (size_t i = 2; i < 6; ++i) baud = baud << 8 | static_cast<uint8_t>(sub[i]);
    Transcript("--", "baud rate " + std::to_string(baud));
  } else if (command == telnet::kSetControl &&
             (value == telnet::kDtrOn || value == telnet::kDtrOff)) {
    Transcript("--", value == telnet::kDtrOn ? "DTR high" : "DTR low");
    if (value == telnet::kDtrOn) {
      hung_up_ = false;
    } else if (!hung_up_) {
      // A modem hangs up when DTR drops; what it still had to say is lost.
      hung_up_ = true;
      peer_.OnClose(NowMs(), *this);
      scheduled_.clear();
    }
  } else {
    const char* name = command == telnet::kSetDataSize         ? "data size"
                       : command == telnet::kSetParity         ? "parity"
                       : command == telnet::kSetStopSize       ? "stop size"
                       : command == telnet::kSetControl        ? "control"
                       : command == telnet::kPurgeData         ? "purge"
                       : command == telnet::kSetModemStateMask ? "modem state mask"
                                                               : "command";
    Transcript("--", name + (" " + std::to_string(value)));
  }
}

void TcpDriver::Closed() {
  Transcript("--", "close");
  if (!hung_up_) peer_.OnClose(NowMs(), *this);
  client_ = UniqueFd();
  telnet_.reset();
  scheduled_.clear();
  out_.clear();
  closing_ = false;
  ++closes_;
}

void TcpDriver::SendAt(int64_t at_ms, const std::string& bytes) {
  if (bytes.empty() || client_.get() < 0) return;
  scheduled_.emplace(std::make_pair(at_ms, send_seq_++), bytes);
}

void TcpDriver::SetCarrier(bool high) {
  Transcript("--", high ? "carrier high" : "carrier low");
  if (client_.get() < 0) return;
  if (mode_ == TcpMode::kTelnet) {
    // The carrier's notice: its state and the change bit.
    const char state = static_cast<char>((high ? telnet::kStateCd : 0) | 0x08);
    out_ += TelnetCodec::Subnegotiation(
        telnet::kComPort,
        std::string{static_cast<char>(telnet::kNotifyModemState + telnet::kServerOffset), state});
  } else if (mode_ == TcpMode::kDirect && !high) {
    closing_ = true;
  }
}

void TcpDriver::Note(const std::string& text) { Transcript("#", Readable(text)); }

void TcpDriver::MoveDue(int64_t now_ms) {
  while (!scheduled_.empty() && scheduled_.begin()->first.first <= now_ms) {
    const std::string bytes = std::move(scheduled_.begin()->second);
    scheduled_.erase(scheduled_.begin());
    Transcript("<", Readable(bytes));
    if (telnet_) {
      TelnetCodec::Escape(bytes, &out_);
    } else {
      out_ += bytes;
    }
  }
}

void TcpDriver::WriteOut() {
  if (client_.get() < 0 || out_.empty()) return;
  const ssize_t n = send(client_.get(), out_.data(), out_.size(), MSG_NOSIGNAL);
  if (n > 0) out_.erase(0, static_cast<size_t>(n));
}

void TcpDriver::Transcript(const std::string& tag, const std::string& text) {
  transcript_.Write(NowMs(), tag, text);
}

}  // namespace kw::sim
