#ifndef KW_OS_INTERRUPT_POSIX_H_
#define KW_OS_INTERRUPT_POSIX_H_

namespace kw {

/// Names the descriptor of the open serial port (-1 when none is open), so that a second
/// request to stop, which ends the process at once, can still hand the line back.
void SetPortForForcedEnd(int fd);

/// Names our port lock file and the descriptor open on it (null and -1 for none), so that a
/// second request to stop removes the file as it goes, if it is still the one we made.
void SetLockFileForForcedEnd(const char* path, int fd);

}  // namespace kw

#endif  // KW_OS_INTERRUPT_POSIX_H_
