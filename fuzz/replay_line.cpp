// A line names a call with members that fit it, or the answer tells what is wrong in one line.

#include "fuzz/fuzz.h"
#include "support/json.h"
#include "tools/replay_calls.h"

void vantamo::fuzz::check(std::string_view input) {
  static const tools::Calls calls = tools::facadeCalls();
  const nlohmann::json json = plainJson(input);
  try {
    const Value line = tools::lineOf(std::string(input));
    const tools::Call& call = tools::callOf(line, calls);
    require(json.is_object() && json["call"].is_string(), "a call is an object that names it");
    require(&call == &calls.at(json["call"].get_ref<const std::string&>()), "it is the named one");
    require(json.size() <= call.arguments.size() + 1, "every member is an argument");
  } catch (const tools::MalformedCall& error) {
    const std::string answer = support::writeJson(error.what());
    require(answer.size() > 2, "an error has a text");
    require(answer.find('\n') == std::string::npos && nlohmann::json::accept(answer),
            "an error is one line of JSON");
    require(!(json.is_object() && json == nlohmann::json{{"call", "startup"}}),
            "a well-formed call is no error");
  }
}
