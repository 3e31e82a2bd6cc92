#ifndef KW_OS_BOUNDED_CALL_H_
#define KW_OS_BOUNDED_CALL_H_

#include <chrono>
#include <functional>

namespace kw {

/// Runs work on a helper thread and waits for it until the deadline, looking for a request to
/// stop a few times a second (and raising it, as every wait does). Gives whether the work is
/// done; a helper that isn't is left to finish alone, so the work must own (or share) all that
/// it touches. For a system call that can't be bounded otherwise, such as a name lookup.
bool RunBounded(std::function<void()> work, std::chrono::steady_clock::time_point deadline);

}  // namespace kw

#endif  // KW_OS_BOUNDED_CALL_H_
