#ifndef KW_FRONTEND_SEND_CONSOLE_H_
#define KW_FRONTEND_SEND_CONSOLE_H_

#include <string>

#include "base/error.h"
#include "frontend/send_options.h"

namespace kw {

/// One run of kestrawind-send with its options taken out and its runtime installed: the message
/// from the arguments or from standard input, kestrawind's run and lines, and on a failure one
/// line on standard error. Gives the exit status.
int SendWithOptions(const SendOptions& options, const std::wstring& config_file);

/// The line for standard error that says what failed: the cause (the device or file as the
/// settings name it, with the system's reason) where it is known, else the error's own text.
std::wstring FailureLine(const Error& error, const std::wstring& config_file, int wait_seconds);

/// The process's entry of kestrawind-send: starts as kestrawind does, reads its own options,
/// installs the runtime for the ini they name and sends. Gives the exit status.
int RunSendProgram();

}  // namespace kw

#endif  // KW_FRONTEND_SEND_CONSOLE_H_
