#include "os/serial_core.h"

#include <functional>
#include <utility>

#include "base/text.h"
#include "os/serial_errors.h"

namespace kw {
namespace {

/// The most that OutBufferCount can tell.
constexpr size_t kMaxCount = 32767;

/// The event that a change of each modem-status line raises, in the order they are raised.
constexpr struct {
  unsigned line;
  CommEventNumber event;
} kLineEvents[] = {
    {kLineCts, kCommEvCTS}, {kLineDsr, kCommEvDSR}, {kLineCd, kCommEvCD}, {kLineRing, kCommEvRing}};

// Calls the handler for one event, with current set to the event's number while it runs and back
// to the outer event's number afterwards, also when the handler raises (a request to stop the run
// in a wait inside it, say). The handler is copied first, so that it may replace OnComm.
void CallOnComm(const std::function<void()>& on_comm, int16_t& current, int16_t event) {
  struct Restore {
    int16_t& slot;
    const int16_t value;
    ~Restore() { slot = value; }
  } restore{current, current};
  current = event;
  const std::function<void()> handler = on_comm;
  if (handler) handler();
}

}  // namespace

unsigned ModemLinesOf(unsigned status, const std::array<unsigned, 4>& masks) {
  unsigned lines = 0;
  for (size_t i = 0; i < masks.size(); ++i) {
    if ((status & masks[i]) != 0) lines |= kLineEvents[i].line;
  }
  return lines;
}

void SerialCore::SetCommPort(int16_t port) {
  if (open_) throw PortAlreadyOpen();
  port_ = port;
}

void SerialCore::SetRTSEnable(bool enable) {
  rts_enable_ = enable;
  if (open_ && !failed_) SetLine(ControlLine::kRts, enable);
}

void SerialCore::SetPortOpen(bool open) {
  if (open) {
    Open();
  } else {
    Close();
  }
}

void SerialCore::Open() {
  if (open_) throw PortAlreadyOpen();
  if (port_ < 1) {
    throw InvalidPort().WithCause(Cause::kBadAddress, L"Port=" + std::to_wstring(port_),
                                  L"ports are numbered from 1");
  }
  OpenDevice(port_, rts_enable_);
  Restart(true);
  comm_event_ = 0;
  unsigned lines = 0;
  has_modem_lines_ = ModemLines(&lines) == LineStatus::kKnown;
  last_lines_ = has_modem_lines_ ? lines : 0;
}

void SerialCore::Close() noexcept {
  if (!open_) return;
  CloseDevice();
  Restart(false);
}

void SerialCore::Restart(bool open) {
  open_ = open;
  ++generation_;
  failed_ = false;
  carried_ = false;
  has_modem_lines_ = false;
  in_queue_.clear();
  out_queue_.clear();
  input_unsignaled_ = false;
  notice_unread_ = false;
  send_armed_ = false;
}

void SerialCore::SetInBufferCount(int16_t count) {
  if (!open_) throw PortNotOpen();
  if (count != 0) return;
  if (!failed_) PurgeInput();
  in_queue_.clear();
  input_unsignaled_ = false;
  // After the device is gone nothing else will come; the notice must still reach the link.
  if (notice_unread_) in_queue_ = kLostLineNotice;
}

void SerialCore::SetOutput(const std::wstring& text) {
  if (!open_) throw PortNotOpen();
  // The line is gone: dropping the bytes is all there is to do, and raising here would bury
  // the lost line that the link is about to report.
  if (failed_) return;
  out_queue_ += ToLine(text);
  send_armed_ = true;
  if (FlushOutput()) return;
  if (carried_) {
    // The line carried bytes and now fails: the device went away in the call, a lost line.
    Fail();
    return;
  }
  // Not one byte got out since the opening: the port refuses to write, and that is the
  // caller's failure to report (a dial that can't be written), not a call that was lost.
  Fail(false);
  throw WriteFailed();
}

bool SerialCore::FlushOutput() {
  while (!out_queue_.empty() && !failed_) {
    const ptrdiff_t n = Write(out_queue_.data(), out_queue_.size());
    if (n < 0) return false;
    if (n == 0) break;
    out_queue_.erase(0, static_cast<size_t>(n));
    carried_ = true;
  }
  return true;
}

int16_t SerialCore::OutBufferCount() {
  const size_t total = out_queue_.size() + (open_ && !failed_ ? QueuedOutput() : 0);
  return static_cast<int16_t>(total > kMaxCount ? kMaxCount : total);
}

std::wstring SerialCore::Input() {
  if (!open_) throw PortNotOpen();
  if (!failed_) ReadInput();
  std::wstring text = FromLine(in_queue_);
  in_queue_.clear();
  input_unsignaled_ = false;
  notice_unread_ = false;
  return text;
}

bool SerialCore::CDHolding() {
  if (!open_ || failed_) return false;
  unsigned lines = 0;
  switch (ModemLines(&lines)) {
    case LineStatus::kKnown:
      return (lines & kLineCd) != 0;
    case LineStatus::kNoLines:
      return true;  // no carrier line to lose (a pty): the line counts as up
    case LineStatus::kFailed:
      break;
  }
  return false;
}

void SerialCore::ReadInput() {
  const size_t before = in_queue_.size();
  const bool alive = ReadAvailable(&in_queue_);
  if (in_queue_.size() != before) input_unsignaled_ = true;
  if (!alive) Fail();
}

void SerialCore::Fail(bool lost_line) {
  if (failed_) return;
  // Whatever the device still holds came before the loss and is handed over first.
  ReadAvailable(&in_queue_);
  failed_ = true;
  out_queue_.clear();
  if (!lost_line) return;
  in_queue_ += kLostLineNotice;
  input_unsignaled_ = true;
  notice_unread_ = true;
}

bool SerialCore::Raise(int16_t event, uint64_t generation) {
  CallOnComm(OnComm, comm_event_, event);
  return open_ && generation_ == generation;
}

void SerialCore::DeliverPending() {
  if (!open_) return;
  const uint64_t generation = generation_;
  // Each event's cause is cleared before its handler runs, so that a handler which delivers
  // events again (nested) sees only what is new and is not called again for the same thing.
  if (!failed_) ReadInput();
  if (rthreshold_ > 0 && input_unsignaled_ && !in_queue_.empty() &&
      (in_queue_.size() >= static_cast<size_t>(rthreshold_) || failed_)) {
    input_unsignaled_ = false;
    if (!Raise(kCommEvReceive, generation)) return;
  }

  if (!failed_ && !FlushOutput()) Fail();
  if (send_armed_ && sthreshold_ > 0 && OutBufferCount() < sthreshold_) {
    send_armed_ = false;
    if (!Raise(kCommEvSend, generation)) return;
  }

  if (!has_modem_lines_ || failed_) return;
  unsigned lines = 0;
  if (ModemLines(&lines) != LineStatus::kKnown) return;
  const unsigned changed = std::exchange(last_lines_, lines) ^ lines;
  for (const auto& entry : kLineEvents) {
    if ((changed & entry.line) != 0 && !Raise(entry.event, generation)) return;
  }
}

int SerialCore::WaitLimitMs() const {
  if (!open_ || failed_) return -1;
  return DeviceWaitLimitMs(send_armed_ && sthreshold_ > 0 && out_queue_.empty());
}

}  // namespace kw
