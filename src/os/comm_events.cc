#include "os/comm_events.h"

namespace kw {

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

void RaiseLineChanges(unsigned before, unsigned now, const ModemLineBits& bits,
                      const std::function<bool(int16_t event)>& raise) {
  const unsigned changed = before ^ now;
  const struct {
    unsigned line;
    CommEventNumber event;
  } events[] = {{bits.cts, kCommEvCTS},
                {bits.dsr, kCommEvDSR},
                {bits.cd, kCommEvCD},
                {bits.ring, kCommEvRing}};
  for (const auto& entry : events) {
    if ((changed & entry.line) != 0 && !raise(entry.event)) return;
  }
}

}  // namespace kw
