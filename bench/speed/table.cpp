#include "bench/speed/table.h"

#include <cmath>
#include <iomanip>
#include <ostream>
#include <sstream>

namespace vantamo::bench {
namespace {

std::string number(double value) {
  std::ostringstream text;
  const double size = std::abs(value);
  text << std::fixed << std::setprecision(size >= 100 ? 0 : size >= 10 ? 1 : 2) << value;
  return text.str();
}

}  // namespace

void print(std::ostream& out, const std::vector<Row>& rows) {
  out << "| | figure | limit of the same run | ratio | goal | |\n|---|---|---|---|---|---|\n";
  for (const Row& row : rows) {
    out << "| " << row.what << " | " << number(row.figure) << " " << row.unit << " | "
        << (row.limit ? number(*row.limit) + " " + row.unit + ": " + row.limitIs : "") << " | "
        << (row.limit ? number(row.judged()) : "") << " | " << (row.atLeast ? "≥ " : "≤ ")
        << number(row.goal) << (row.limit ? "" : " " + row.unit) << " | "
        << (row.isMet() ? "met" : "**not met**") << " |\n";
  }
}

nlohmann::json asJson(const std::vector<Row>& rows) {
  nlohmann::json list = nlohmann::json::array();
  for (const Row& row : rows) {
    nlohmann::json entry = {{"what", row.what}, {"figure", row.figure},   {"unit", row.unit},
                            {"goal", row.goal}, {"atLeast", row.atLeast}, {"met", row.isMet()}};
    if (row.limit) {
      entry["limit"] = *row.limit;
      entry["limitIs"] = row.limitIs;
      entry["ratio"] = row.judged();
    }
    list.push_back(std::move(entry));
  }
  return list;
}

}  // namespace vantamo::bench
