#ifndef KW_OS_INTERRUPT_POSIX_H_
#define KW_OS_INTERRUPT_POSIX_H_

namespace kw {

/// Names the descriptor of the open serial port (-1 when none is open), so that a second
/// request to stop, which ends the process at once, can still hand the line back.
void SetPortForForcedEnd(int fd);

}  // namespace kw

#endif  // KW_OS_INTERRUPT_POSIX_H_
