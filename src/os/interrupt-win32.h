#ifndef KW_OS_INTERRUPT_WIN32_H_
#define KW_OS_INTERRUPT_WIN32_H_

namespace kw {

/// Names the handle of the open serial port (null when none is open), so that a second request
/// to stop, which ends the process at once, can still drop DTR.
void SetPortForForcedEnd(void* handle);

}  // namespace kw

#endif  // KW_OS_INTERRUPT_WIN32_H_
