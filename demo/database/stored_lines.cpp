#include "demo/database/stored_lines.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace demo {

using nlohmann::json;

namespace {

constexpr int64_t NANOSECONDS_PER_MILLISECOND = 1000000;

// Divides the name of a series into measurement and field; no field where it is none of a report.
std::pair<std::string, std::string> DivideName(const std::string& name) {
  for (const std::string measurement : {"korvain_overall", "korvain_table", "korvain_access"}) {
    if (name.rfind(measurement + '_', 0) == 0) {
      return {measurement, name.substr(measurement.size() + 1)};
    }
  }
  return {};
}

void TakeSeries(const json& series, std::map<std::string, CollectedFile>& by_instance) {
  ReportLine line;
  for (const auto& [label, value] : series.at("metric").items()) {
    line.tags[label] = value.get<std::string>();
  }
  CollectedFile& file = by_instance[line.Tag("instance")];
  file.name = "database, instance " + line.Tag("instance");
  const auto [measurement, field] = DivideName(line.Tag("__name__"));
  line.tags.erase("__name__");
  line.measurement = measurement;
  const std::optional<std::string> key = KeyOf(line);
  const json& values = series.at("values");
  const json& stamps = series.at("timestamps");
  if (values.size() != stamps.size()) throw std::runtime_error("not a stamp for each value");
  for (size_t i = 0; i < values.size(); ++i) {
    if (field.empty() || !key || !values[i].is_number_integer()) {
      ++file.unusable;
      continue;
    }
    line.timestamp_ns = stamps[i].get<int64_t>() * NANOSECONDS_PER_MILLISECOND;
    auto& lines = file.reports[{line.Tag("zone"), line.timestamp_ns}];
    const auto [stored, is_new] = lines.try_emplace(*key, line);
    if (is_new) ++file.lines;
    const bool is_of_line = stored->second.tags == line.tags;
    const bool is_first = stored->second.integers.emplace(field, values[i].get<int64_t>()).second;
    if (!is_of_line || !is_first) ++file.repeated;
  }
}

}  // namespace

std::map<std::string, CollectedFile> ReadStoredLines(const std::string& path) {
  std::map<std::string, CollectedFile> by_instance;
  ReadJsonLines(path, [&](const json& series) { TakeSeries(series, by_instance); });
  return by_instance;
}

}  // namespace demo
