#include "os/runtime.h"

#include <algorithm>

#include "os/system_runtime.h"

namespace kw {
namespace {

/// The runtime installed last; null until somebody installs one.
Runtime* g_installed = nullptr;

}  // namespace

void EventSources::Add(EventSource* source) {
  if (std::find(sources_.begin(), sources_.end(), source) == sources_.end()) {
    sources_.push_back(source);
  }
}

void EventSources::Remove(EventSource* source) {
  sources_.erase(std::remove(sources_.begin(), sources_.end(), source), sources_.end());
}

void EventSources::DeliverAll() {
  const std::vector<EventSource*> round = sources_;
  for (EventSource* source : round) {
    if (std::find(sources_.begin(), sources_.end(), source) != sources_.end()) {
      source->DeliverPending();
    }
  }
}

int EventSources::WaitLimitMs() const {
  int limit_ms = -1;
  for (const EventSource* source : sources_) {
    const int limit = source->WaitLimitMs();
    if (limit > 0 && (limit_ms < 0 || limit < limit_ms)) limit_ms = limit;
  }
  return limit_ms;
}

Runtime& CurrentRuntime() {
  if (g_installed) return *g_installed;
  static std::unique_ptr<Runtime> fallback = NewSystemRuntime(nullptr);
  return *fallback;
}

void WaitSeconds(int32_t seconds) {
  Runtime& runtime = CurrentRuntime();
  const int64_t start = runtime.NowSeconds();
  while (runtime.NowSeconds() - start < seconds) {
    // Blocks until an event is pending or the next whole second, so the wait never spins.
    runtime.WaitForEvent();
    for (int i = 0; i < 3; ++i) runtime.DoEvents();
  }
}

ScopedRuntime::ScopedRuntime(Runtime& runtime) : previous_(g_installed) { g_installed = &runtime; }

ScopedRuntime::~ScopedRuntime() { g_installed = previous_; }

}  // namespace kw
