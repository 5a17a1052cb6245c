#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "tools/collect/tag_store.h"

namespace vantamo::tools::collect {

/// One line of a tagging plan: members that a tag must have.
struct Expectation {
  int line = 0;
  Value::Map members;
};

/// Reads a plan of JSON Lines; blank lines and lines that begin with # are passed over. A member is
/// a wire key, an argument's name, or "event" ("call" is the same, so that a replay line is an
/// expectation too), with a string, a list of strings for an argument that is a list, or null for
/// what must be absent. Throws std::runtime_error, naming file, line and reason.
[[nodiscard]] std::vector<Expectation> expectationsOf(std::istream& file, const std::string& name);

struct PlanRules {
  /// Tags must arrive in the order of the lines; others may come between them.
  bool inOrder = false;
};

/// Holds tags against a plan while they arrive. Each line wants a tag of its own; where several
/// tags fit several lines they are shared out so that as many lines as possible have one.
class Plan {
 public:
  Plan(std::string name, std::vector<Expectation> expectations, PlanRules rules);

  void add(const Tag& tag);
  /// Forgets what has arrived.
  void clear();

  [[nodiscard]] bool isComplete() const { return matched_ == expectations_.size(); }
  /// Whether a tag has arrived that no line has.
  [[nodiscard]] bool hasUnexpected() const { return matched_ < arrived_.size(); }
  [[nodiscard]] std::size_t matched() const { return matched_; }
  [[nodiscard]] std::size_t size() const { return expectations_.size(); }

  /// What is missing, each with the nearest tag and what differs, and what nobody expected. Empty
  /// when there is no difference.
  [[nodiscard]] std::string difference() const;

 private:
  struct Arrived {
    Tag tag;
    Value::Map call;
    std::vector<std::size_t> fits;
    std::optional<std::size_t> line;
  };

  bool place(std::size_t arrived);
  void moveInto(std::size_t line, const std::vector<std::optional<std::size_t>>& takerOf);
  [[nodiscard]] std::string missingText(std::size_t index) const;

  std::string name_;
  std::vector<Expectation> expectations_;
  PlanRules rules_;
  std::vector<Arrived> arrived_;
  std::vector<std::optional<std::size_t>> tagOf_;  // by expectation
  std::vector<bool> isSettled_;                    // by expectation: its tags stay where they are
  std::size_t matched_ = 0;
};

/// A tag in one line, as "#3 firePageView pageId="home"".
[[nodiscard]] std::string shortText(const StoredTag& tag);

}  // namespace vantamo::tools::collect
