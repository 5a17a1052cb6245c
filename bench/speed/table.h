#pragma once

#include <iosfwd>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace vantamo::bench {

/// A figure, held against a limit that was measured in the same run.
struct Row {
  std::string what;
  double figure = 0;
  std::string unit;
  /// What nothing could be better than, and in which words.
  std::optional<double> limit = {};
  std::string limitIs = {};
  /// For the ratio of figure and limit where there is a limit, else for the figure.
  double goal = 0;
  bool atLeast = false;

  [[nodiscard]] double judged() const { return limit ? figure / *limit : figure; }
  [[nodiscard]] bool isMet() const { return atLeast ? judged() >= goal : judged() <= goal; }
};

/// The rows as a Markdown table.
void print(std::ostream& out, const std::vector<Row>& rows);
[[nodiscard]] nlohmann::json asJson(const std::vector<Row>& rows);

}  // namespace vantamo::bench
