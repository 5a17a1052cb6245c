#pragma once

#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>

namespace vantamo::test {

template <class... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

/// Tells what was measured, also as a row of a table in the file that VANTAMO_FIGURES names.
inline void figure(const std::string& promise, const std::string& how,
                   const std::string& measured) {
  std::cout << promise << "\n    " << how << "\n    -> " << measured << std::endl;
  if (const char* file = std::getenv("VANTAMO_FIGURES")) {
    std::ofstream(file, std::ios::app)
        << "| " << promise << " | " << how << " | " << measured << " |\n";
  }
}
inline std::string milliseconds(long long microseconds) {
  return text(std::setprecision(3), static_cast<double>(microseconds) / 1000, " ms");
}

}  // namespace vantamo::test
