#ifndef KW_SIM_CENTRE_FACTORY_H_
#define KW_SIM_CENTRE_FACTORY_H_

#include <map>
#include <memory>
#include <string>

#include "sim/peer.h"

namespace kw::sim {

/// Makes the centre that sits behind the simulated modem, by kind, with its own key=value
/// options. "none" gives null: the modem then only keeps the data-mode bytes. Raises
/// std::invalid_argument for an unknown kind or an option the kind doesn't take.
std::unique_ptr<Peer> MakeCentre(const std::string& kind,
                                 const std::map<std::string, std::string>& options);

}  // namespace kw::sim

#endif  // KW_SIM_CENTRE_FACTORY_H_
