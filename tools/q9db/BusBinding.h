// Description files tied to the buses of a capture: "can1=body.dbc" decodes
// the frames of can1 with body.dbc alone; files given without a bus serve
// every bus that has none of its own.
#ifndef Q9DB_TOOL_BUSBINDING_H
#define Q9DB_TOOL_BUSBINDING_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "DescribedFrames.h"
#include "Network.h"

namespace q9tool {

struct BusBinding {
  std::string interface;
  std::string file;
};
// "INTERFACE=FILE". False with problem set for anything else.
bool parseBusBinding(const std::string& text, BusBinding& binding, std::string& problem);

class BusChannels {
 public:
  // Imports every file once (unbound ones first, in order), reporting as
  // importFiles does; false when one fails or a bound file has no CAN bus.
  bool import(Network& network, const std::vector<std::string>& files, const std::vector<BusBinding>& bindings,
              const ImportOptions& options);

  // The channels that decode frames of interface; null when no description
  // serves it. Consecutive frames mostly share their bus: the last answer is
  // kept.
  const std::vector<Q9DbNode*>* channelsFor(std::string_view interface) {
    if (!lastInterface_.empty() && interface == lastInterface_) return last_;
    lastInterface_.assign(interface.data(), interface.size());
    last_ = everyBus_.empty() ? nullptr : &everyBus_;
    for (const auto& bound : bound_)
      if (bound.first == interface) last_ = &bound.second;
    return last_;
  }
  // Every channel of the files, unbound and bound.
  std::vector<Q9DbNode*> allChannels() const;
  // The described frames of identifier on the channels that serve
  // interface, the first channel's first; none when no description serves
  // it. With byParameterGroup, an extended identifier no frame has finds
  // the frames of its J1939 parameter group.
  std::vector<const DescribedFrame*> find(const DescribedFrames& described, std::string_view interface,
                                          uint32_t identifier, bool extended, bool byParameterGroup = false);

 private:
  std::vector<Q9DbNode*> everyBus_;
  std::vector<std::pair<std::string, std::vector<Q9DbNode*>>> bound_;
  std::string lastInterface_;
  const std::vector<Q9DbNode*>* last_ = nullptr;
};

// What decode and stats do first: the --bus texts parsed, the files
// imported (both reported on standard error as they go wrong) and a CAN bus
// found among them. The exit status: 0 when buses and network are ready.
int openBuses(const char* command, const std::vector<std::string>& files, const std::vector<std::string>& bindings,
              const ImportOptions& options, Network& network, BusChannels& buses);

}  // namespace q9tool

#endif
