#ifndef KW_OS_OUTPUT_BUDGET_H_
#define KW_OS_OUTPUT_BUDGET_H_

#include <cstdint>

namespace kw {

/// How long a run's output may wait for its readers in all, standard output and the system log
/// together.
constexpr int64_t kOutputBudgetMs = 5000;

/// The time that output may still spend waiting for a reader that takes nothing (a pipe that
/// nobody reads, a stuck system logger), shared by every write of a run, so that such a reader
/// can't hold the call up: what can't be written within it is dropped.
class OutputBudget {
 public:
  explicit OutputBudget(int64_t total_ms) : left_ms_(total_ms) {}
  /// How long the next wait may last in milliseconds: what is left, or nothing once a request to
  /// stop has come (the run must get on to its hang-up).
  int WaitLimitMs() const;
  /// Counts the time that a wait took against what is left.
  void Spend(int64_t ms);
  /// Records that output was dropped for want of time.
  void NoteDropped() { dropped_ = true; }
  /// True once after output was dropped, and again after a later loss: when the trace says so.
  bool TakeDropped();

 private:
  int64_t left_ms_;
  bool dropped_ = false;
};

/// The budget of this process's run, which standard output and the system log share.
OutputBudget& RunOutputBudget();

}  // namespace kw

#endif  // KW_OS_OUTPUT_BUDGET_H_
