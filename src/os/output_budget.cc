#include "os/output_budget.h"

#include <algorithm>
#include <climits>
#include <utility>

#include "os/interrupt.h"

namespace kw {

int OutputBudget::WaitLimitMs() const {
  if (StopRequested()) return 0;
  return static_cast<int>(std::clamp<int64_t>(left_ms_, 0, INT_MAX));
}

void OutputBudget::Spend(int64_t ms) { left_ms_ -= std::max<int64_t>(ms, 0); }

bool OutputBudget::TakeDropped() { return std::exchange(dropped_, false); }

OutputBudget& RunOutputBudget() {
  // One per process, as standard output and the system log are: a run is one process.
  static OutputBudget budget(kOutputBudgetMs);
  return budget;
}

}  // namespace kw
