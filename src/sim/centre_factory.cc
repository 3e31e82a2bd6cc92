#include "sim/centre_factory.h"

#include <stdexcept>

#include "sim/tap_centre.h"
#include "sim/ucp_centre.h"

namespace kw::sim {
namespace {

/// The kinds MakeCentre knows, for the message about an unknown one.
constexpr char kKnownKinds[] = "none, tap, ucp";

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
  if (kind == "ucp") return std::make_unique<UcpCentre>(options);
  if (kind == "tap") {
    TapScenario scenario = TapScenarioFromOptions(options);
    scenario.own_no_carrier = false;  // the modem in front of the centre says NO CARRIER
    return std::make_unique<TapCentre>(scenario);
  }
  throw std::invalid_argument("unknown centre kind \"" + kind + "\" (known: " + kKnownKinds + ")");
}

}  // namespace kw::sim
