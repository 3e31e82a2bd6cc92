#include "os/bounded_call.h"

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "os/interrupt.h"

namespace kw {
namespace {

/// How often the wait looks for a request to stop.
constexpr std::chrono::milliseconds kInterruptLook{100};

/// What the helper and the waiting thread share; the last of them to go frees it.
struct Shared {
  std::mutex mutex;
  std::condition_variable finished;
  bool done = false;
};

}  // namespace

bool RunBounded(std::function<void()> work, std::chrono::steady_clock::time_point deadline) {
  auto shared = std::make_shared<Shared>();
  std::thread([shared, work = std::move(work)] {
    work();
    const std::lock_guard<std::mutex> hold(shared->mutex);
    shared->done = true;
    shared->finished.notify_all();
  }).detach();
  std::unique_lock<std::mutex> hold(shared->mutex);
  while (!shared->done) {
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return false;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now);
    shared->finished.wait_for(hold, std::min(left + std::chrono::milliseconds(1), kInterruptLook));
    if (shared->done) break;
    hold.unlock();
    RaiseIfInterrupted();
    hold.lock();
  }
  return true;
}

}  // namespace kw
