#ifndef KW_FRONTEND_SEND_OPTIONS_H_
#define KW_FRONTEND_SEND_OPTIONS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kw {

/// Seconds that kestrawind-send waits for a port that another holds, unless --wait says.
inline constexpr int32_t kDefaultWaitSeconds = 300;
/// The most bytes of standard input that make a message.
inline constexpr size_t kInputLimit = 65536;

/// What kestrawind-send's own options ask for; the other arguments are kestrawind's.
struct SendOptions {
  /// --wait: seconds to wait for a port that another run or program holds.
  int32_t wait_seconds = kDefaultWaitSeconds;
  /// --config: the ini to read; empty for kestrawind.ini beside the executable.
  std::wstring config_file;
  bool help = false;     ///< --help
  bool version = false;  ///< --version
  /// The recipient, the message and the slash options, in their order.
  std::vector<std::wstring> arguments;
  /// What is wrong with the options, said for the user; empty when nothing is.
  std::wstring problem;
};

/// Takes the GNU-style options ("--wait 5", "--wait=5", "--config FILE", "--help",
/// "--version") out of the arguments, wherever they stand; "--" ends them.
SendOptions ParseSendOptions(const std::vector<std::wstring>& arguments);

/// The lines of --help.
std::vector<std::wstring> SendHelpLines();

/// The line of --version.
std::wstring SendVersionLine();

/// The message that standard input held, or why there is none.
struct InputText {
  std::wstring text;
  /// What is wrong with the input, said for the user; empty when nothing is.
  std::wstring problem;
  /// The exit status for the problem.
  int status = 0;
};

/// The message in standard input's bytes (read in the locale's encoding): the line ends at its
/// end dropped, each CR LF or lone CR inside made one LF. Empty input, a control byte other
/// than tab, LF and CR (binary data), and more than kInputLimit bytes are problems.
InputText TextFromInput(const std::string& bytes);

/// A warning that names the characters of the text that the line's code page (Windows-1252)
/// lacks, each as U+XXXX and as itself; empty when it has them all.
std::wstring CodePageWarning(const std::wstring& text);

}  // namespace kw

#endif  // KW_FRONTEND_SEND_OPTIONS_H_
