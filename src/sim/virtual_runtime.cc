#include "sim/virtual_runtime.h"

#include <algorithm>
#include <stdexcept>

#include "base/error.h"
#include "base/text.h"
#include "os/interrupt.h"
#include "os/serial_errors.h"

namespace kw::sim {
namespace {

/// A run that lets this much virtual time pass has hung; the test fails instead of looping.
constexpr int64_t kVirtualTimeLimitMs = 24LL * 3600 * 1000;

}  // namespace

VirtualRuntime::VirtualRuntime(int64_t start_ms) : now_ms_(start_ms) {}

VirtualRuntime::~VirtualRuntime() = default;

std::wstring VirtualRuntime::NowText() { return L"T+" + std::to_wstring(now_ms_ / 1000); }

void VirtualRuntime::At(int64_t at_ms, std::function<void()> action) {
  schedule_.emplace(std::max(at_ms, now_ms_), std::move(action));
}

TimedPeer* VirtualRuntime::Timed() const {
  return open_comm_ ? dynamic_cast<TimedPeer*>(peer_) : nullptr;
}

int64_t VirtualRuntime::NextDue() const {
  int64_t next = schedule_.empty() ? kNoTimer : schedule_.begin()->first;
  if (TimedPeer* timed = Timed()) {
    const int64_t timer = timed->NextTimerMs();
    if (timer != kNoTimer && (next == kNoTimer || timer < next)) next = timer;
  }
  return next;
}

void VirtualRuntime::RunDue() {
  for (int64_t next = NextDue(); next != kNoTimer && next <= now_ms_; next = NextDue()) {
    if (!schedule_.empty() && schedule_.begin()->first <= now_ms_) {
      auto action = std::move(schedule_.begin()->second);
      schedule_.erase(schedule_.begin());
      action();
    } else {
      Timed()->OnTimer(now_ms_, *open_comm_);
    }
  }
}

void VirtualRuntime::AdvanceTo(int64_t at_ms) {
  if (at_ms - now_ms_ > kVirtualTimeLimitMs) throw std::runtime_error("virtual run hangs");
  for (int64_t next = NextDue(); next != kNoTimer && next <= at_ms; next = NextDue()) {
    now_ms_ = std::max(now_ms_, next);
    RunDue();
    // As a signal cuts a real poll or sleep short: a request to stop ends the wait at once.
    RaiseIfInterrupted();
  }
  now_ms_ = at_ms;
}

bool VirtualRuntime::AnythingPending() const {
  for (EventSource* source : sources_) {
    if (static_cast<FakeComm*>(source)->HasPending()) return true;
  }
  return false;
}

void VirtualRuntime::DoEvents() {
  RunDue();
  std::vector<EventSource*> sources = sources_;
  for (EventSource* source : sources) {
    if (std::find(sources_.begin(), sources_.end(), source) != sources_.end()) {
      source->DeliverPending();
    }
  }
}

void VirtualRuntime::WaitForEvent() {
  ++waits_;
  RunDue();
  RaiseIfInterrupted();
  if (AnythingPending()) return;
  int64_t until = (now_ms_ / 1000 + 1) * 1000;
  const int64_t next = NextDue();
  if (next != kNoTimer) until = std::min(until, next);
  AdvanceTo(until);
}

void VirtualRuntime::Sleep(int milliseconds) {
  RaiseIfInterrupted();
  AdvanceTo(now_ms_ + milliseconds);
}

std::unique_ptr<SerialComm> VirtualRuntime::NewSerialComm() {
  return std::make_unique<FakeComm>(*this);
}

std::unique_ptr<SerialComm> VirtualRuntime::NewConnectionComm(const NetAddress& address,
                                                              int64_t limit_ms) {
  return std::make_unique<FakeComm>(*this, address.Text(), limit_ms);
}

void VirtualRuntime::AddSource(EventSource* source) { sources_.push_back(source); }

void VirtualRuntime::RemoveSource(EventSource* source) {
  sources_.erase(std::remove(sources_.begin(), sources_.end(), source), sources_.end());
}

std::string VirtualRuntime::written() const {
  std::string out;
  for (const std::string& line : transcript_) {
    if (line.rfind("> ", 0) == 0) out += line.substr(2);
  }
  return out;
}

FakeComm::~FakeComm() {
  if (open_) SetPortOpen(false);
}

void FakeComm::SetPortOpen(bool open) {
  if (open == open_) {
    if (open) throw Error(8005, kProgramSource, L"Port already open");
    return;
  }
  if (open) {
    if (runtime_.open_fails()) {
      Error failure(8002, kProgramSource, L"Invalid port number");
      if (runtime_.open_cause() == Cause::kNone) throw failure;
      if (runtime_.open_cause() == Cause::kTimedOut) runtime_.Sleep(static_cast<int>(limit_ms_));
      throw failure.WithCause(runtime_.open_cause(), address_, L"refused by the test");
    }
    if (runtime_.now_ms() < runtime_.busy_until_ms()) {
      throw Error(8005, kProgramSource, L"Port already open")
          .WithCause(Cause::kBusy, L"COM" + std::to_wstring(port_), L"in use by another run");
    }
    open_ = true;
    ++generation_;
    input_.clear();
    runtime_.AddSource(this);
    runtime_.set_open_comm(this);
    runtime_.transcript().push_back(address_.empty() ? "-- open"
                                                     : "-- connect " + ToLine(address_));
    // A connection is its own carrier.
    carrier_ = !address_.empty();
    last_send_ms_ = runtime_.now_ms();
  } else {
    open_ = false;
    send_armed_ = false;
    runtime_.RemoveSource(this);
    runtime_.transcript().push_back("-- close");
    if (runtime_.peer()) runtime_.peer()->OnClose(runtime_.now_ms(), *this);
    runtime_.set_open_comm(nullptr);
    carrier_ = false;
  }
}

void FakeComm::SetInBufferCount(int16_t count) {
  if (count == 0) input_.clear();
}

void FakeComm::SetOutput(const std::wstring& text) {
  if (open_ && lost()) return;  // nothing reaches a connection that has closed
  const std::string bytes = ToLine(text);
  // Kept byte for byte (control characters included) so tests can compare exactly; the
  // written() view strips the direction marks again.
  runtime_.transcript().push_back("> " + bytes);
  if (!open_) throw Error(8018, kProgramSource, L"Operation valid only when the port is open");
  send_armed_ = true;
  if (runtime_.peer()) runtime_.peer()->OnBytes(runtime_.now_ms(), bytes, *this);
}

std::wstring FakeComm::Input() {
  std::wstring text = FromLine(input_);
  input_.clear();
  return text;
}

bool FakeComm::HasPending() const {
  return (!input_.empty() && rthreshold_ > 0) || (send_armed_ && sthreshold_ > 0);
}

void FakeComm::DeliverPending() {
  if (!input_.empty() && rthreshold_ > 0 && static_cast<int>(input_.size()) >= rthreshold_) {
    event_ = kCommEvReceive;
    if (OnComm) OnComm();
  }
  if (send_armed_ && sthreshold_ > 0 && open_) {
    send_armed_ = false;
    event_ = kCommEvSend;
    if (OnComm) OnComm();
  }
}

void FakeComm::SetCarrier(bool high) {
  if (address_.empty() || high) {
    carrier_ = high;
    return;
  }
  // The connection closes once the peer's last bytes are out: the line is lost, as the serial
  // core reports a connection that the other side closed.
  const int generation = generation_;
  std::weak_ptr<int> alive = alive_;
  runtime_.At(last_send_ms_, [this, alive, generation] {
    if (alive.expired() || !open_ || generation != generation_ || lost()) return;
    carrier_ = false;
    input_ += kLostLineNotice;
    runtime_.transcript().push_back("# connection closed by the peer");
  });
}

void FakeComm::SendAt(int64_t at_ms, const std::string& bytes) {
  last_send_ms_ = std::max(last_send_ms_, at_ms);
  const int generation = generation_;
  std::weak_ptr<int> alive = alive_;
  runtime_.At(at_ms, [this, alive, generation, bytes] {
    if (alive.expired() || !open_ || generation != generation_ || lost())
      return;  // the call is over; the bytes are lost
    input_ += bytes;
    runtime_.transcript().push_back("< " + bytes);
  });
}

void FakeComm::Note(const std::string& text) { runtime_.transcript().push_back("# " + text); }

}  // namespace kw::sim
