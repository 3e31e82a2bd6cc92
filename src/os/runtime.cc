#include "os/runtime.h"

#include "os/system_runtime.h"

namespace kw {
namespace {

/// The runtime installed last; null until somebody installs one.
Runtime* g_installed = nullptr;

}  // namespace

Runtime& CurrentRuntime() {
  if (g_installed) return *g_installed;
  static std::unique_ptr<Runtime> fallback = NewSystemRuntime(nullptr);
  return *fallback;
}

ScopedRuntime::ScopedRuntime(Runtime& runtime) : previous_(g_installed) { g_installed = &runtime; }

ScopedRuntime::~ScopedRuntime() { g_installed = previous_; }

}  // namespace kw
