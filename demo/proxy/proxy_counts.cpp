#include "demo/proxy/proxy_counts.h"

#include <nlohmann/json.hpp>

namespace demo {

std::string ToSummary(const ProxyCounts& counts, const std::string& url) {
  const nlohmann::json summary = {{"url", url},
                                  {"received", counts.received},
                                  {"dropped", counts.dropped},
                                  {"errors", counts.errors},
                                  {"answered", counts.answered},
                                  {"held_us", counts.held_us},
                                  {"unsent", counts.unsent},
                                  {"malformed", counts.malformed}};
  return summary.dump() + '\n';
}

}  // namespace demo
