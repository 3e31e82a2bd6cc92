#ifndef KW_FRONTEND_SEND_CONSOLE_H_
#define KW_FRONTEND_SEND_CONSOLE_H_

namespace kw {

/// The process's entry of kestrawind-send: starts as kestrawind does, reads its own options,
/// installs the runtime for the ini they name and sends. Gives the exit status.
int RunSendProgram();

}  // namespace kw

#endif  // KW_FRONTEND_SEND_CONSOLE_H_
