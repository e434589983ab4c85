// Turns the answer to a range query into a table for gnuplot: a row for each time, a column for
// each of the wanted series, NaN where a series has no value.
#include <iostream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "demo/common/command_line.h"

namespace demo {

namespace {

struct TableOptions {
  std::string label;
  std::vector<std::string> columns;
};

void AddOptions(CLI::App& app, TableOptions& options) {
  app.footer("Reads the answer, JSON, from standard input.");
  app.add_option("--label", options.label, "label that tells the series apart")->required();
  AddRepeatedOption(app, "--column", options.columns, "the label's value in a column")->required();
}

int PrintTable(const TableOptions& options) {
  const std::string answer{std::istreambuf_iterator<char>(std::cin), {}};
  std::map<int64_t, std::map<std::string, std::string>> rows;  // by seconds, then label
  try {
    const auto parsed = nlohmann::json::parse(answer);
    for (const auto& series : parsed.at("data").at("result")) {
      const auto label = series.at("metric").at(options.label).get<std::string>();
      for (const auto& point : series.at("values")) {
        rows[point.at(0).get<int64_t>()][label] = point.at(1).get<std::string>();
      }
    }
  } catch (const nlohmann::json::exception& error) {
    throw UsageError(fmt::format("not the answer to a range query: {}", error.what()));
  }
  if (rows.empty()) throw UsageError("the answer holds no values");
  for (const auto& [time_s, values] : rows) {
    fmt::print("{}", time_s);
    for (const std::string& column : options.columns) {
      const auto value = values.find(column);
      fmt::print(" {}", value == values.end() ? "NaN" : value->second);
    }
    fmt::print("\n");
  }
  return 0;
}

}  // namespace

}  // namespace demo

int main(int argc, char** argv) {
  demo::TableOptions options;
  return demo::RunProgram(
      argc, argv, "series_table", "Turns the answer to a range query into a table.",
      [&](CLI::App& app) { AddOptions(app, options); }, [&] { return demo::PrintTable(options); });
}
