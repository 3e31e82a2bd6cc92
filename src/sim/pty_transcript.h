#ifndef KW_SIM_PTY_TRANSCRIPT_H_
#define KW_SIM_PTY_TRANSCRIPT_H_

#include <cstdint>
#include <fstream>
#include <string>

namespace kw::sim {

/// The file in which the pty driver writes down each byte each way, opens, closes and notes.
class TranscriptFile {
 public:
  /// Opens the file at path, emptied; raises kw::Error when it can't be written.
  void Open(const std::string& path);
  /// One line: the time, the tag, the text; nothing while no file is open.
  void Write(int64_t now_ms, const std::string& tag, const std::string& text);

 private:
  std::ofstream file_;
};

/// Line bytes as one readable transcript line: the named control characters as the program's
/// debug log shows them, any other control character as <xNN>, the rest as UTF-8.
std::string Readable(const std::string& bytes);

}  // namespace kw::sim

#endif  // KW_SIM_PTY_TRANSCRIPT_H_
