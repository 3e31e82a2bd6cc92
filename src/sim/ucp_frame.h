#ifndef KW_SIM_UCP_FRAME_H_
#define KW_SIM_UCP_FRAME_H_

#include <string>

namespace kw::sim {

/// What the centre read from one frame.
struct UcpFrame {
  std::string operation;     ///< the operation type as it stood in the header
  std::string recipient;     ///< field 1
  std::string sender;        ///< field 2
  std::string auth;          ///< field 3
  std::string text;          ///< the message field, decoded from its hexadecimal digits
  bool text_is_hex = true;   ///< the message field held only pairs of hexadecimal digits
  size_t field_count = 0;    ///< the data fields found
  bool length_ok = false;    ///< the length field matches the frame
  bool checksum_ok = false;  ///< the checksum matches the frame
};

/// Reads a frame's body (the bytes between STX and ETX) into frame and gives the transcript's
/// account of it ("op 01, recipient ..., length ok, checksum ok"). False, with frame left as it
/// was, for a body that is no operation frame.
bool ReadUcpFrame(const std::string& body, UcpFrame& frame, std::string& note);

/// Whether the centre knows the operation (01, 03, 30 or 51).
bool IsKnownUcpOperation(const std::string& operation);

/// The reply a centre gives, STX to ETX: "01/", length, "/R/", operation, "/", letter, "/",
/// fields, "/", checksum. An operation that isn't two characters is answered as "00", so that
/// the letter stays at offset 15.
std::string UcpReply(const std::string& operation, char letter, const std::string& fields);

/// The two upper-case hexadecimal digits of the low eight bits of the bytes' sum.
std::string UcpSum(const std::string& text);

/// The text for a transcript note: control bytes written as \xNN.
std::string ShownInNote(const std::string& text);

}  // namespace kw::sim

#endif  // KW_SIM_UCP_FRAME_H_
