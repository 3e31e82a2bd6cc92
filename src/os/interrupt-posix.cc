#include "os/interrupt-posix.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

#include "os/interrupt.h"

namespace kw {
namespace {

// The open port, for the handler of a second signal; -1 while none is open.
std::atomic<int> g_port_fd{-1};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler must not take a lock");

/// Our lock file, as the handler of a second signal reads it.
struct LockFile {
  int fd;
  char path[4096];
};
// The fixed buffer behind g_lock_file: filled while g_lock_file is null and then published by
// it, so that the handler never reads a path half written.
LockFile g_lock_file_buffer;
std::atomic<const LockFile*> g_lock_file{nullptr};
static_assert(std::atomic<const LockFile*>::is_always_lock_free, "no lock in a signal handler");

/// The requests to stop a run and the names that the error line gives them.
constexpr struct {
  int signal;
  const wchar_t* cause;
} kStopSignals[] = {
    {SIGINT, L"SIGINT (Ctrl+C)"},
    {SIGTERM, L"SIGTERM"},
    // The terminal that started the run went away (a closed window, a dropped ssh session).
    {SIGHUP, L"SIGHUP (the terminal closed)"},
    // Each of these would end the run on the spot (SIGQUIT and SIGXCPU with a core dump), with
    // the call up and the port locked.
    {SIGQUIT, L"SIGQUIT (Ctrl+\\)"},
    {SIGALRM, L"SIGALRM"},
    {SIGUSR1, L"SIGUSR1"},
    {SIGUSR2, L"SIGUSR2"},
    {SIGXCPU, L"SIGXCPU (the CPU time limit)"},
};

const wchar_t* CauseOf(int signal_number) {
  for (const auto& entry : kStopSignals) {
    if (entry.signal == signal_number) return entry.cause;
  }
  return L"a signal";
}

// Runs in signal context: only atomics, ioctl, fstat, lstat, unlink, sigaction and raise, all
// async-signal-safe.
void OnStopSignal(int signal_number) {
  if (NoteInterruptRequest(CauseOf(signal_number))) return;  // the next wait raises it
  // A second request: end now. The kernel closes the port, and HUPCL drops DTR as it does;
  // DTR is dropped here too, and the exclusive flag cleared, which a pty would otherwise keep
  // for the next run that isn't root.
  const int fd = g_port_fd.load();
  if (fd >= 0) {
    int dtr = TIOCM_DTR;
    ioctl(fd, TIOCMBIC, &dtr);
    ioctl(fd, TIOCNXCL);
  }
  // The lock file goes too: one of root's would shut out every other user until root runs again.
  // Only while it is still ours, as on an ordinary release.
  if (const LockFile* lock = g_lock_file.load()) {
    struct stat open_one {};
    struct stat named {};
    if (fstat(lock->fd, &open_one) == 0 && lstat(lock->path, &named) == 0 &&
        open_one.st_dev == named.st_dev && open_one.st_ino == named.st_ino) {
      unlink(lock->path);
    }
  }
  // Dies of the signal itself, so that a shell sees how the run ended.
  struct sigaction fallback {};
  fallback.sa_handler = SIG_DFL;
  sigemptyset(&fallback.sa_mask);
  sigaction(signal_number, &fallback, nullptr);
  raise(signal_number);  // delivered as soon as this handler returns
}

}  // namespace

void SetPortForForcedEnd(int fd) { g_port_fd.store(fd); }

void SetLockFileForForcedEnd(const char* path, int fd) {
  g_lock_file.store(nullptr);
  if (path == nullptr || std::strlen(path) >= sizeof g_lock_file_buffer.path) return;
  g_lock_file_buffer.fd = fd;
  std::strcpy(g_lock_file_buffer.path, path);
  g_lock_file.store(&g_lock_file_buffer);
}

void ArmInterruptHandlers() {
  struct sigaction action {};
  action.sa_handler = OnStopSignal;
  // One handler at a time: a second signal waits until the first has been recorded.
  sigemptyset(&action.sa_mask);
  for (const auto& entry : kStopSignals) sigaddset(&action.sa_mask, entry.signal);
  // SA_RESTART keeps the library's own reads and writes going; poll(2) and nanosleep(2), where
  // the run waits, return EINTR all the same, and the waits look at the request then.
  action.sa_flags = SA_RESTART;
  for (const auto& entry : kStopSignals) {
    // A signal that was ignored when we started (nohup, a shell's background job) stays ignored.
    struct sigaction before {};
    if (sigaction(entry.signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
    sigaction(entry.signal, &action, nullptr);
  }
}

}  // namespace kw
