#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "tools/plain_text.h"

namespace vantamo::tools {

/// Writes what checks have found, a line each: level, subject, finding.
class Findings {
 public:
  Findings(std::ostream& lines, bool colours) : lines_(lines), colours_(colours) {}

  void ok(std::string_view subject, std::string_view text) { write("ok  ", "32", subject, text); }
  void warn(std::string_view subject, std::string_view text) { write("warn", "33", subject, text); }
  void fail(std::string_view subject, std::string_view text) {
    failed_ = true;
    write("FAIL", "31", subject, text);
  }
  [[nodiscard]] bool failed() const { return failed_; }

 private:
  void write(std::string_view level, std::string_view colour, std::string_view subject,
             std::string_view text) {
    if (colours_) {
      lines_ << "\x1b[" << colour << 'm' << level << "\x1b[0m";
    } else {
      lines_ << level;
    }
    lines_ << "  " << subject << ": " << printable(text) << std::endl;
  }

  std::ostream& lines_;
  const bool colours_;
  bool failed_ = false;
};

}  // namespace vantamo::tools
