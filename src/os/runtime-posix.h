#ifndef KW_OS_RUNTIME_POSIX_H_
#define KW_OS_RUNTIME_POSIX_H_

#include <memory>

#include "os/runtime.h"
#include "os/system_runtime.h"

namespace kw {

/// A source whose causes show on a descriptor, so that a wait can sleep in poll(2) until then.
class PollSource : public virtual EventSource {
 public:
  /// The descriptor to wait on, or -1 for none just now.
  virtual int WaitDescriptor() const = 0;
  /// The poll(2) events to wait for on that descriptor.
  virtual short WaitEvents() const = 0;
};

/// The POSIX runtime as the serial ports that it makes see it: besides delivering their events,
/// it waits on their descriptors.
class PollingRuntime : public Runtime {
 public:
  /// Registers a source for delivery and for the waits; a second registration changes nothing.
  virtual void AddPollSource(PollSource* source) = 0;
  /// Unregisters it from both.
  virtual void RemovePollSource(PollSource* source) = 0;
};

/// The POSIX runtime itself: the monotonic clock, poll(2) over its sources' descriptors.
std::unique_ptr<PollingRuntime> NewPollingRuntime(PortDeviceResolver device_for_port);

}  // namespace kw

#endif  // KW_OS_RUNTIME_POSIX_H_
