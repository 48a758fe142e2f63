// Every file, bound or not, is imported once. A file bound to a bus that
// describes no CAN bus is refused rather than binding nothing, and files
// bound to one interface add up. Problems go to stderr, and the caller gets
// the exit code the command returns.
#include "BusBinding.h"

#include <algorithm>
#include <cstdio>

#include "Commands.h"

namespace q9tool {

bool parseBusBinding(const std::string& text, BusBinding& binding, std::string& problem) {
  size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0 || equals + 1 == text.size() ||
      text.find_first_of(" \t()#") < equals) {
    problem = "'" + text + "' is no binding: INTERFACE=FILE, e.g. can1=body.dbc";
    return false;
  }
  binding = {text.substr(0, equals), text.substr(equals + 1)};
  return true;
}

bool BusChannels::import(Network& network, const std::vector<std::string>& files,
                         const std::vector<BusBinding>& bindings, const ImportOptions& options) {
  std::vector<std::string> all = files;
  for (const BusBinding& b : bindings)
    if (std::find(all.begin(), all.end(), b.file) == all.end()) all.push_back(b.file);
  if (!importFiles(network, all, options)) return false;
  for (const std::string& file : files) {
    std::vector<Q9DbNode*> channels = network.canChannelsOf(file);
    everyBus_.insert(everyBus_.end(), channels.begin(), channels.end());
  }
  for (const BusBinding& b : bindings) {
    std::vector<Q9DbNode*> channels = network.canChannelsOf(b.file);
    if (channels.empty()) {
      std::fprintf(stderr, "q9db: %s: no CAN bus is described in it, so it can't be bound to %s\n", b.file.c_str(),
                   b.interface.c_str());
      return false;
    }
    auto found = std::find_if(bound_.begin(), bound_.end(), [&](const auto& e) { return e.first == b.interface; });
    if (found == bound_.end()) bound_.push_back({b.interface, channels});
    else found->second.insert(found->second.end(), channels.begin(), channels.end());
  }
  return true;
}

std::vector<const DescribedFrame*> BusChannels::find(const DescribedFrames& described, std::string_view interface,
                                                     uint32_t identifier, bool extended, bool byParameterGroup) {
  std::vector<const DescribedFrame*> found;
  const std::vector<Q9DbNode*>* channels = channelsFor(interface);
  if (!channels) return found;
  for (Q9DbNode* channel : *channels) {
    std::vector<const DescribedFrame*> on = described.find(identifier, extended, channel);
    found.insert(found.end(), on.begin(), on.end());
  }
  if (found.empty() && byParameterGroup && extended)
    for (Q9DbNode* channel : *channels) {
      std::vector<const DescribedFrame*> on = described.findParameterGroup(identifier, channel);
      found.insert(found.end(), on.begin(), on.end());
    }
  return found;
}

int openBuses(const char* command, const std::vector<std::string>& files, const std::vector<std::string>& texts,
              const ImportOptions& options, Network& network, BusChannels& buses) {
  std::vector<BusBinding> bindings;
  for (const std::string& text : texts) {
    BusBinding binding;
    std::string problem;
    if (!parseBusBinding(text, binding, problem)) {
      std::fprintf(stderr, "q9db: --bus: %s\n", problem.c_str());
      return kExitUsageError;
    }
    bindings.push_back(binding);
  }
  if (files.empty() && bindings.empty()) {
    std::fprintf(stderr, "q9db: %s: a description file, or a --bus INTERFACE=FILE, is needed\n", command);
    return kExitUsageError;
  }
  if (!buses.import(network, files, bindings, options)) return kExitInputError;
  if (buses.allChannels().empty()) {
    std::fprintf(stderr, "q9db: no CAN bus is described in %s\n",
                 files.size() == 1 && bindings.empty() ? files[0].c_str() : "the files");
    return kExitInputError;
  }
  return kExitOk;
}

std::vector<Q9DbNode*> BusChannels::allChannels() const {
  std::vector<Q9DbNode*> all = everyBus_;
  for (const auto& bound : bound_)
    for (Q9DbNode* channel : bound.second)
      if (std::find(all.begin(), all.end(), channel) == all.end()) all.push_back(channel);
  return all;
}

}  // namespace q9tool
