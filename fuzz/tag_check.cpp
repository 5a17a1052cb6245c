// Any body gets a reading: an object that is a tag or a reason why not, never more problems than a
// line can tell. A replay line is one that a script takes.

#include "fuzz/fuzz.h"
#include "support/json.h"
#include "tools/collect/replay_line.h"
#include "tools/replay_calls.h"

void vantamo::fuzz::check(std::string_view input) {
  using namespace tools::collect;
  static const tools::Calls calls = tools::facadeCalls();
  const nlohmann::json json = plainJson(input);
  const TagReading reading = readTag(input, 1'800'000'000);
  require(json.is_object() || !reading.problems.empty(), "what is no object is a problem");
  require(!json.is_object() || json.size() == reading.tag.size() || !reading.problems.empty(),
          "every key is read");
  require(reading.problems.size() <= mostProblems + 1, "problems are cut short");
  for (const Problem& problem : reading.problems) {
    require(!problem.text.empty(), "a problem has words");
    require(nlohmann::json::accept(support::writeJson(problem.text)), "which can be shown");
  }
  const auto call = replayCall(reading);
  require(call.has_value() == (reading.event != nullptr), "a known event can be replayed");
  if (call) static_cast<void>(tools::callOf(Value(*call), calls));
}
