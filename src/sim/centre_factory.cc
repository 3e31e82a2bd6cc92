#include "sim/centre_factory.h"

#include <stdexcept>

namespace kw::sim {
namespace {

/// The kinds MakeCentre knows, for the message about an unknown one.
constexpr char kKnownKinds[] = "none";

}  // namespace

std::unique_ptr<Peer> MakeCentre(const std::string& kind,
                                 const std::map<std::string, std::string>& options) {
  if (kind == "none") {
    if (!options.empty()) {
      throw std::invalid_argument("centre \"none\" takes no options, got \"" +
                                  options.begin()->first + "\"");
    }
    return nullptr;
  }
  throw std::invalid_argument("unknown centre kind \"" + kind + "\" (known: " + kKnownKinds + ")");
}

}  // namespace kw::sim
