#ifndef KW_OS_PORT_LOCK_POSIX_H_
#define KW_OS_PORT_LOCK_POSIX_H_

#include <sys/types.h>

#include <string>

namespace kw {

/// The lock file's name for a device path (symlinks already resolved): "LCK.." and the path
/// below /dev (else below /) with every further "/" written as "_", so /dev/ttyUSB0 gives
/// "LCK..ttyUSB0" and /dev/pts/3 gives "LCK..pts_3".
std::string PortLockName(const std::string& device);

/// A lock file's text in the HDB form: the process id right-aligned in ten characters, then LF.
std::string PortLockText(pid_t pid);

/// The process id in a lock file's text (HDB: digits with blanks around them); -1 for none.
pid_t ParsePid(const std::string& text);

/// The folder where the serial programs of this system keep their lock files.
std::string SystemPortLockFolder();

/// The UUCP lock file that marks a serial device as in use for programs that don't look at
/// flock. Taken before the device is opened and removed when the object releases it or goes.
class PortLock {
 public:
  /// How an attempt to take the lock ended.
  enum class Result {
    kTaken,        ///< the lock file is ours
    kHeld,         ///< a live process holds the device (or its stale lock can't be removed)
    kUnavailable,  ///< the folder can't be written: no lock file, nothing held
  };

  /// A lock that is not taken yet, kept in the folder given (the system's, or a test's own).
  explicit PortLock(std::string folder);
  ~PortLock();
  PortLock(PortLock&& other) noexcept;
  PortLock& operator=(PortLock&& other) noexcept;
  PortLock(const PortLock&) = delete;
  PortLock& operator=(const PortLock&) = delete;

  /// Takes the lock of the device at this path, removing a stale one of a process that is gone.
  /// Never blocks for long: gives up as held after half a second of contention.
  Result Take(const std::string& device);
  /// Removes the lock file if it is still ours; never raises. Nothing happens when none is held.
  void Release() noexcept;
  /// The folder that the lock files go to.
  const std::string& folder() const { return folder_; }

 private:
  std::string folder_;
  std::string path_;  ///< the lock file we hold, "" for none
  int fd_ = -1;       ///< open on our lock file and flock'ed, so that we are seen as its holder
};

}  // namespace kw

#endif  // KW_OS_PORT_LOCK_POSIX_H_
