#ifndef KW_OS_RUNTIME_H_
#define KW_OS_RUNTIME_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "os/net_address.h"
#include "os/serial_comm.h"

namespace kw {

/// Something with events to deliver on the program's one thread, such as an open serial port.
class EventSource {
 public:
  virtual ~EventSource() = default;
  /// Raises every event whose cause is there now; never blocks.
  virtual void DeliverPending() = 0;
  /// The longest that a wait may block before this source wants to look again, in
  /// milliseconds (for a cause that nothing wakes the wait for); -1 for no limit.
  virtual int WaitLimitMs() const { return -1; }
};

/// The clock, the delivery of events and the making of serial components: the services
/// that a run waits on. The real one sits on the operating system; tests use a virtual one.
class Runtime {
 public:
  virtual ~Runtime() = default;

  /// A clock reading in whole seconds; only differences of two readings mean anything.
  virtual int64_t NowSeconds() = 0;
  /// The current local date and time in the system's default text form, whole seconds.
  virtual std::wstring NowText() = 0;
  /// Lets every pending event be delivered once; never blocks.
  virtual void DoEvents() = 0;
  /// Blocks until an event is pending, a source's wait limit has passed or the clock reaches its
  /// next whole second, whichever comes first; callers look again and wait again as needed.
  /// Raises the interruption error (RaiseIfInterrupted) as soon as a request to stop has come.
  virtual void WaitForEvent() = 0;
  /// Blocks for the given milliseconds and delivers nothing; raises like WaitForEvent.
  virtual void Sleep(int milliseconds) = 0;
  /// Makes a new serial component, closed, tied to this runtime's event delivery.
  virtual std::unique_ptr<SerialComm> NewSerialComm() = 0;
  /// Makes a new component over a TCP connection to the address, closed: opening connects
  /// within limit_ms, the bytes cross as they are, and closing the connection ends the call.
  virtual std::unique_ptr<SerialComm> NewConnectionComm(const NetAddress& address,
                                                        int64_t limit_ms) = 0;

  /// Sources register while they may have events and unregister before they go.
  virtual void AddSource(EventSource* source) = 0;
  virtual void RemoveSource(EventSource* source) = 0;
};

/// The sources that a runtime delivers events for, kept in the order they came: the part of
/// event delivery that every runtime shares.
class EventSources {
 public:
  /// Adds a source; a second addition changes nothing.
  void Add(EventSource* source);
  /// Removes a source, if it is there.
  void Remove(EventSource* source);
  /// Delivers each source's pending events once; a handler may add or remove sources meanwhile,
  /// and one removed before its turn is skipped.
  void DeliverAll();
  /// The smallest wait limit that a source asks for, in milliseconds; -1 when none asks.
  int WaitLimitMs() const;

 private:
  std::vector<EventSource*> sources_;
};

/// The runtime of this process: the one installed last, else the operating system's.
Runtime& CurrentRuntime();

/// Waits until the current runtime's clock shows the given whole seconds passed, delivering serial
/// events meanwhile.
void WaitSeconds(int32_t seconds);

/// Installs a runtime for as long as it lives (a test's virtual one, or main's real one).
class ScopedRuntime {
 public:
  explicit ScopedRuntime(Runtime& runtime);
  ~ScopedRuntime();
  ScopedRuntime(const ScopedRuntime&) = delete;
  ScopedRuntime& operator=(const ScopedRuntime&) = delete;

 private:
  Runtime* previous_;
};

}  // namespace kw

#endif  // KW_OS_RUNTIME_H_
