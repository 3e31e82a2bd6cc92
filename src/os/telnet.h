#ifndef KW_OS_TELNET_H_
#define KW_OS_TELNET_H_

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace kw {

/// The telnet bytes that the program speaks (RFC 854 and 855), and the com port option's
/// (RFC 2217).
namespace telnet {
inline constexpr uint8_t kIac = 255;
inline constexpr uint8_t kDont = 254;
inline constexpr uint8_t kDo = 253;
inline constexpr uint8_t kWont = 252;
inline constexpr uint8_t kWill = 251;
inline constexpr uint8_t kSb = 250;
inline constexpr uint8_t kSe = 240;

inline constexpr uint8_t kBinary = 0;
inline constexpr uint8_t kEcho = 1;
inline constexpr uint8_t kSuppressGoAhead = 3;
inline constexpr uint8_t kComPort = 44;

/// The com port option's commands as the client sends them; the server's answer to each, and its
/// own notices, carry the number plus kServerOffset.
inline constexpr uint8_t kSetBaudRate = 1;
inline constexpr uint8_t kSetDataSize = 2;
inline constexpr uint8_t kSetParity = 3;
inline constexpr uint8_t kSetStopSize = 4;
inline constexpr uint8_t kSetControl = 5;
inline constexpr uint8_t kNotifyModemState = 7;
inline constexpr uint8_t kSetModemStateMask = 11;
inline constexpr uint8_t kPurgeData = 12;
inline constexpr uint8_t kServerOffset = 100;

/// Values of kSetControl and kPurgeData.
inline constexpr uint8_t kNoFlowControl = 1;
inline constexpr uint8_t kDtrOn = 8;
inline constexpr uint8_t kDtrOff = 9;
inline constexpr uint8_t kRtsOn = 11;
inline constexpr uint8_t kRtsOff = 12;
inline constexpr uint8_t kPurgeReceived = 1;

/// The bits of a modem-state notice: CTS, DSR, ring and carrier detect.
inline constexpr uint8_t kStateCts = 0x10;
inline constexpr uint8_t kStateDsr = 0x20;
inline constexpr uint8_t kStateRing = 0x40;
inline constexpr uint8_t kStateCd = 0x80;
}  // namespace telnet

/// One side of a telnet connection: splits what arrives into data, answers to the other side's
/// option requests and subnegotiations, and keeps the options' states (RFC 1143's way, without
/// its queue: a side answers only what changes a state, so no request loops).
class TelnetCodec {
 public:
  /// Where an option stands, for one side.
  enum class State : uint8_t { kNo, kYes, kAsked };

  /// The options that this side enables for itself when asked (DO), and those it lets the other
  /// side enable (WILL); every other request is refused.
  TelnetCodec(std::initializer_list<uint8_t> local, std::initializer_list<uint8_t> remote);

  /// Offers to enable the option here (WILL) unless it is on or offered: the request to *wire.
  void OfferLocal(uint8_t option, std::string* wire);
  /// Asks the other side to enable the option (DO) unless it is on or asked.
  void AskRemote(uint8_t option, std::string* wire);
  /// Takes bytes as they came: the data (IAC undoubled) to *data, the answers to *wire, each
  /// whole subnegotiation (its option, then its bytes with IAC undoubled) to *subs. A command
  /// that no telnet knows is dropped, and so is a subnegotiation longer than kMaxSub.
  void Decode(std::string_view bytes, std::string* data, std::string* wire,
              std::vector<std::string>* subs);

  /// The option's state for this side and for the other.
  State local(uint8_t option) const { return local_[option]; }
  State remote(uint8_t option) const { return remote_[option]; }

  /// Appends data to *wire with every IAC doubled.
  static void Escape(std::string_view data, std::string* wire);
  /// IAC SB, the option, the payload with every IAC doubled, IAC SE.
  static std::string Subnegotiation(uint8_t option, std::string_view payload);

  /// The longest subnegotiation kept.
  static constexpr size_t kMaxSub = 64;

 private:
  enum class Mode : uint8_t { kData, kIac, kVerb, kSub, kSubIac };
  /// One WILL, WONT, DO or DONT from the other side.
  void Negotiate(uint8_t verb, uint8_t option, std::string* wire);
  /// The byte after an IAC outside a subnegotiation.
  void Command(uint8_t byte, std::string* data);

  std::array<State, 256> local_{};
  std::array<State, 256> remote_{};
  std::array<bool, 256> local_ok_{};
  std::array<bool, 256> remote_ok_{};
  Mode mode_ = Mode::kData;
  uint8_t verb_ = 0;
  std::string sub_;
  bool sub_too_long_ = false;
};

/// A com port command of the client: IAC SB COM-PORT-OPTION, the command, the value, IAC SE.
std::string ComPortCommand(uint8_t command, std::string_view value);
/// The commands that make the server's port 9600 baud, 8 data bits, no parity, 1 stop bit, no flow
/// control, raise DTR, set RTS and report every change of the modem-status lines.
std::string ComPortSetUp(bool rts_high);

}  // namespace kw

#endif  // KW_OS_TELNET_H_
