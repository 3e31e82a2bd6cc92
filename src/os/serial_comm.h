#ifndef KW_OS_SERIAL_COMM_H_
#define KW_OS_SERIAL_COMM_H_

#include <cstdint>
#include <functional>
#include <string>

namespace kw {

/// Event numbers that a serial component reports through OnComm.
enum CommEventNumber : int16_t {
  kCommEvSend = 1,     ///< the output has run down below SThreshold
  kCommEvReceive = 2,  ///< RThreshold characters or more wait to be read
  kCommEvCTS = 3,
  kCommEvDSR = 4,
  kCommEvCD = 5,
  kCommEvRing = 6,
  kCommEvEOF = 7,
};

/// The serial component that the modem link drives: exactly the properties and the one event
/// that the program relies on. Text crosses it one character a byte, in the line's character set.
class SerialComm {
 public:
  virtual ~SerialComm() = default;

  /// The port that the next opening takes (1 is the first port).
  virtual void SetCommPort(int16_t port) = 0;
  /// OnComm with event 2 as soon as this many characters wait; 0 turns the event off.
  virtual void SetRThreshold(int16_t count) = 0;
  /// OnComm with event 1 when the output drops below this many characters; 0 turns it off.
  virtual void SetSThreshold(int16_t count) = 0;
  /// Whether the RTS line is raised while the port is open.
  virtual void SetRTSEnable(bool enable) = 0;
  /// Opens (raises an Error if it can't) or closes (never raises) the port.
  virtual void SetPortOpen(bool open) = 0;
  virtual bool PortOpen() const = 0;
  /// Drops every received character that nobody has read (only 0 is meaningful).
  virtual void SetInBufferCount(int16_t count) = 0;
  /// Queues the characters for sending, unchanged, one byte each.
  virtual void SetOutput(const std::wstring& text) = 0;
  /// Characters still waiting to go out.
  virtual int16_t OutBufferCount() = 0;
  /// Hands over and removes all received characters; empty if there are none.
  virtual std::wstring Input() = 0;
  /// Whether the carrier detect line is high.
  virtual bool CDHolding() = 0;
  /// The number of the event being delivered.
  virtual int16_t CommEvent() const = 0;

  /// The one event: called on the program's thread, only while events are being delivered.
  std::function<void()> OnComm;
  /// Called with a remark on how the port was taken, for the debug log; may stay empty.
  std::function<void(const std::wstring&)> OnNotice;
};

}  // namespace kw

#endif  // KW_OS_SERIAL_COMM_H_
