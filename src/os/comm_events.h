#ifndef KW_OS_COMM_EVENTS_H_
#define KW_OS_COMM_EVENTS_H_

#include <cstdint>
#include <functional>

#include "os/serial_comm.h"

namespace kw {

// The delivery of the serial component's events that both platforms share; only how the
// bytes and the modem-control lines are reached differs between them.

/// Calls the handler for one event, with current set to the event's number while it runs and
/// back to the outer event's number afterwards, also when the handler raises (a request to stop
/// the run in a wait inside it, say). The handler is copied first, so that it may replace OnComm.
void CallOnComm(const std::function<void()>& on_comm, int16_t& current, int16_t event);

/// The bits of a platform's modem-status word for the lines whose changes raise events.
struct ModemLineBits {
  unsigned cts, dsr, cd, ring;
};

/// Raises the events of the lines whose bits differ between two status words, in the order CTS,
/// DSR, CD, ring; stops as soon as raise gives false (the handler closed the port).
void RaiseLineChanges(unsigned before, unsigned now, const ModemLineBits& bits,
                      const std::function<bool(int16_t event)>& raise);

}  // namespace kw

#endif  // KW_OS_COMM_EVENTS_H_
