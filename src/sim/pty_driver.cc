#include "sim/pty_driver.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

#include "sim/sim_modem.h"

namespace kw::sim {

PtyDriver::PtyDriver(Peer& peer, const PtyOptions& options)
    : peer_(peer), timed_(dynamic_cast<TimedPeer*>(&peer)), start_ns_(MonotonicNs()) {
  RawPty pty = OpenRawPty();
  master_ = std::move(pty.master);
  slave_path_ = std::move(pty.slave_path);
  // The master learns of a close only once the last slave descriptor goes, and never of an open;
  // inotify on the slave node sees both.
  inotify_ = WatchOpensAndCloses(slave_path_);

  if (!options.transcript_path.empty()) transcript_.Open(options.transcript_path);

  if (!options.link_path.empty()) {
    MakeLink(slave_path_, options.link_path);
    link_path_ = options.link_path;
  }
}

PtyDriver::~PtyDriver() {
  // Removes the link only while it still names this pty: another simulator may have taken it.
  if (!link_path_.empty()) RemoveLinkTo(slave_path_, link_path_);
}

int64_t PtyDriver::NowMs() const { return (MonotonicNs() - start_ns_) / 1000000; }

RunEnd PtyDriver::Run(const RunLimits& limits) {
  const int64_t deadline = NowMs() + limits.max_ms;
  const int closes_before = closes_;
  for (;;) {
    const int64_t now = NowMs();
    if (timed_) {
      const int64_t due = timed_->NextTimerMs();
      if (due != kNoTimer && due <= now) timed_->OnTimer(now, *this);
    }
    MoveDue(now);
    WriteOut();
    if (limits.runs > 0 && closes_ - closes_before >= limits.runs) return RunEnd::kRunsDone;
    if (now >= deadline) return RunEnd::kTimeLimit;

    int64_t wake = deadline;
    if (!scheduled_.empty()) wake = std::min(wake, scheduled_.begin()->first.first);
    if (timed_) {
      const int64_t due = timed_->NextTimerMs();
      if (due != kNoTimer) wake = std::min(wake, due);
    }
    // At least 1 ms, so that a peer whose timer stays in the past can't make the loop spin.
    int64_t timeout = std::clamp<int64_t>(wake - now, 1, INT_MAX);
    // POLLHUP is a level: while it stands the master stays out of the poll set, and inotify
    // gets a short while to report the close that caused it.
    const bool watch_master = open_count_ > 0 && !master_hup_;
    if (master_hup_) timeout = std::min<int64_t>(timeout, 10);
    master_hup_ = false;

    pollfd fds[3];
    nfds_t count = 0;
    fds[count++] = {inotify_.get(), POLLIN, 0};
    const nfds_t stop_at = count;
    if (limits.stop_fd >= 0) fds[count++] = {limits.stop_fd, POLLIN, 0};
    const nfds_t master_at = count;
    if (watch_master) {
      fds[count++] = {master_.get(), static_cast<short>(POLLIN | (out_.empty() ? 0 : POLLOUT)), 0};
    }
    if (poll(fds, count, static_cast<int>(timeout)) < 0) {
      if (errno == EINTR) continue;
      ThrowSystem("poll");
    }
    if (limits.stop_fd >= 0 && fds[stop_at].revents != 0) return RunEnd::kStopped;
    if (watch_master) {
      const short revents = fds[master_at].revents;
      if (revents & POLLIN) ReadMaster();
      if (revents & (POLLHUP | POLLERR)) master_hup_ = true;
    }
    if (fds[0].revents & POLLIN) ReadInotify();
  }
}

void PtyDriver::SendAt(int64_t at_ms, const std::string& bytes) {
  if (bytes.empty()) return;
  scheduled_.emplace(std::make_pair(at_ms, send_seq_++), bytes);
}

void PtyDriver::SetCarrier(bool high) { Transcript("--", high ? "carrier high" : "carrier low"); }

void PtyDriver::Note(const std::string& text) { Transcript("#", Readable(text)); }

void PtyDriver::ReadInotify() {
  alignas(inotify_event) char buffer[4096];
  for (;;) {
    const ssize_t n = read(inotify_.get(), buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EAGAIN || errno == EINTR) return;
      ThrowSystem("read inotify");
    }
    if (n == 0) return;
    for (ssize_t at = 0; at < n;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      // The driver's own open and close look like any other; skipping any one open and any
      // one close for each of its own leaves the program's count right whatever the order.
      if (event->mask & IN_OPEN) {
        if (own_opens_ > 0) {
          --own_opens_;
        } else if (open_count_++ == 0) {
          ProgramOpened();
        }
      }
      if (event->mask & (IN_CLOSE_WRITE | IN_CLOSE_NOWRITE)) {
        if (own_closes_ > 0) {
          --own_closes_;
        } else if (open_count_ > 0 && --open_count_ == 0) {
          ProgramClosed();
        }
      }
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
  }
}

void PtyDriver::ReadMaster() {
  char buffer[4096];
  for (;;) {
    const ssize_t n = read(master_.get(), buffer, sizeof buffer);
    if (n > 0) {
      const std::string bytes(buffer, static_cast<size_t>(n));
      // The settings that the program (or a terminal server for it) gave the line, when new.
      const std::string settings = LineSettings(master_.get());
      if (settings != line_settings_) Transcript("--", "line " + (line_settings_ = settings));
      Transcript(">", Readable(bytes));
      peer_.OnBytes(NowMs(), bytes, *this);
      continue;
    }
    // EIO: the slave is closed and nothing is left to read.
    if (n == 0 || errno == EAGAIN || errno == EIO) return;
    if (errno != EINTR) ThrowSystem("read pty");
  }
}

void PtyDriver::ProgramOpened() {
  master_hup_ = false;
  line_settings_.clear();
  Transcript("--", "open");
}

void PtyDriver::ProgramClosed() {
  // The program's last bytes stay readable after its close; they come before the hang-up.
  ReadMaster();
  Transcript("--", "close");
  peer_.OnClose(NowMs(), *this);
  // Bytes still on their way would wait in the pty for the next opener: the next run must
  // start clean, as a modem that has hung up sends nothing more.
  scheduled_.clear();
  out_.clear();
  FlushSlaveInput();
  master_hup_ = false;
  ++closes_;
}

void PtyDriver::FlushSlaveInput() {
  // A flush on the master leaves the slave's input alone, and bytes that the program didn't read
  // survive its close: the flush has to come from the slave side, so the driver opens it for a
  // moment. inotify reports that open and close too; they are not the program's.
  ++own_opens_;
  ++own_closes_;
  UniqueFd slave(open(slave_path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (slave.get() < 0) {
    --own_opens_;
    --own_closes_;
    ThrowSystem("open " + slave_path_);
  }
  if (tcflush(slave.get(), TCIOFLUSH) != 0) ThrowSystem("tcflush " + slave_path_);
}

void PtyDriver::MoveDue(int64_t now_ms) {
  while (!scheduled_.empty() && scheduled_.begin()->first.first <= now_ms) {
    std::string bytes = std::move(scheduled_.begin()->second);
    scheduled_.erase(scheduled_.begin());
    if (open_count_ > 0) {
      out_.push_back(std::move(bytes));
    } else {
      Transcript("#", "dropped " + std::to_string(bytes.size()) + " byte(s): the port is closed");
    }
  }
}

void PtyDriver::WriteOut() {
  while (!out_.empty()) {
    std::string& front = out_.front();
    const ssize_t n = write(master_.get(), front.data(), front.size());
    if (n < 0) {
      if (errno == EAGAIN || errno == EINTR) return;  // the pty is full: POLLOUT says when
      ThrowSystem("write pty");
    }
    Transcript("<", Readable(front.substr(0, static_cast<size_t>(n))));
    if (static_cast<size_t>(n) < front.size()) {
      front.erase(0, static_cast<size_t>(n));
      return;
    }
    out_.pop_front();
  }
}

void PtyDriver::Transcript(const std::string& tag, const std::string& text) {
  transcript_.Write(NowMs(), tag, text);
}

}  // namespace kw::sim
