// The settings of the host and of what it serves.
#ifndef KORVAIN_DEMO_HOST_OPTIONS_H_
#define KORVAIN_DEMO_HOST_OPTIONS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace demo {

inline constexpr int32_t SET_ID = 3;
inline constexpr int32_t APP_ID = 7;
inline constexpr int32_t TABLES = 2;

struct HostOptions {
  std::string name = "host";
  std::vector<std::string> proxy_urls;
  std::vector<std::string> collect_urls;
  int32_t zones = 1;
  int32_t rate = 100;
  int32_t clock_speed = 1;
  int32_t clock_start_ago_s = 0;
  int32_t timeout_ms = 3000;
  std::string instance;
  int32_t judge_period_s = 10;
  int32_t judge_times = 3;
  int32_t judge_threshold = 90;
  int32_t recheck_s = 60;
  std::string journal;
  std::string summary;
};

void AddOptions(CLI::App& app, HostOptions& options);

}  // namespace demo

#endif  // KORVAIN_DEMO_HOST_OPTIONS_H_
