// What the host writes down for the check at the end of a run, and nothing else of it needs.
#ifndef KORVAIN_DEMO_RUN_RECORD_H_
#define KORVAIN_DEMO_RUN_RECORD_H_

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "demo/host/proxy_set.h"
#include "service_api/service_api_statistic.h"

namespace demo {

// The counts of a record as they are before CalculateAverage, under the names of the fields in
// which their rates and means arrive, and what the host adds for each proxy.
nlohmann::json CountsOf(const KorvainService::SERVICEAPISTATISTIC& record, const ProxySet& proxies);

// A line of JSON for each proxy: what the host itself has counted of it.
std::string SummaryLines(const std::vector<Proxy>& proxies);

}  // namespace demo

#endif  // KORVAIN_DEMO_RUN_RECORD_H_
