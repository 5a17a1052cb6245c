#include "tools/collect/command_line.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "tools/collect/collect_command.h"
#include "tools/waiting_time.h"

namespace vantamo::tools::collect {
namespace {

// What is wrong with a fault's text; empty when it is one.
template <class Parse>
CLI::Validator faultText(Parse parse, const char* name) {
  return CLI::Validator(
      [parse](const std::string& text) {
        try {
          static_cast<void>(parse(text));
          return std::string();
        } catch (const BadFault& error) {
          return std::string(error.what());
        }
      },
      name);
}

void addFaults(CLI::App& command, const std::shared_ptr<CollectOptions>& options) {
  Faults& faults = options->server.faults;
  const std::string group = "Faults, to see how an application takes them";
  command
      .add_option_function<std::string>(
          "--fail", [&faults](const std::string& text) { faults.fail = failureOf(text); },
          "Answer a part of the tags with a status: 503:20%")
      ->check(faultText(&failureOf, "STATUS:PERCENT%"))
      ->group(group);
  command
      .add_option_function<std::string>(
          "--retry-after",
          [&faults](const std::string& text) { faults.retryAfter = retryAfterOf(text); },
          "Sent with each such answer")
      ->check(faultText(&retryAfterOf, "SECONDS"))
      ->group(group);
  command
      .add_option_function<std::string>(
          "--slow", [&faults](const std::string& text) { faults.slow = durationOf(text); },
          "Hold every answer back: 2s, 500ms")
      ->check(faultText(&durationOf, "DURATION"))
      ->group(group);
  command.add_flag("--refuse", faults.refuse, "Close each tag's connection without an answer")
      ->group(group);
}

void addEnds(CLI::App& command, const std::shared_ptr<CollectOptions>& options) {
  const std::string group = "For scripts";
  command.add_option("--until", options->until, "End after so many tags")
      ->check(CLI::Range(1, 10'000))
      ->group(group);
  command.add_option("--timeout", options->timeoutSeconds, "End after so many seconds")
      ->check(checkSeconds)
      ->type_name("SECONDS")
      ->group(group);
  CLI::Option* expect =
      command
          .add_option(
              "--expect", options->expect,
              "The expected tags, a JSON object a line: wire keys or arguments with their "
              "values, \"event\", null for what must be absent. Ends when all have arrived, or "
              "before at --until or --timeout")
          ->type_name("FILE")
          ->group(group);
  command.add_flag("--in-order", options->inOrder, "Expect them in the order of the lines")
      ->needs(expect)
      ->group(group);
  command
      .add_flag(
          "--stay", options->stay,
          "Go on when all have arrived, to --until, --timeout or SIGTERM: an application that "
          "has more to send shall get rid of it")
      ->needs(expect)
      ->group(group);
  command
      .add_flag("--exact", options->exact, "Fail for a tag that no line expects; implies --stay")
      ->needs(expect)
      ->group(group);
  command.add_flag("--strict", options->strict, "Fail for a tag with a problem")->group(group);
  command.add_flag("--quiet", options->quiet, "No line for each tag")->group(group);
}

constexpr const char* collectHelp = R"(Page:
  Its address and the line for VTMod.bundle/settings.json are shown at the start. Every POST but
  /reset and /faults is taken as a tag and answered 204, also one with problems; what a web
  page of another origin posts is refused. GET /tags, /events and /health, POST /reset and /faults
  are for scripts.

Exit status:
  0  ended as asked
  1  not all has arrived as expected
  2  a usage error, a plan that cannot be read, or an address that cannot be listened on

Examples:
  vantamo collect
  vantamo collect --listen 0.0.0.0 --fail 503:20% --retry-after 30
  vantamo collect --expect plan.jsonl --timeout 30 --strict)";

}  // namespace

void addCollect(CLI::App& app, std::function<int()>& job) {
  CLI::App* command = app.add_subcommand(
      "collect",
      "Receives tags as an endpoint does, and shows them on a page in the browser, live, with what "
      "is wrong with them.");
  const auto options = std::make_shared<CollectOptions>();
  command->add_option("--port", options->server.port, "The port; 0 for a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  command
      ->add_option("--listen", options->server.address,
                   "The IP address to listen on; 0.0.0.0 for all, so that a phone reaches it. "
                   "Whoever reaches it can read the tags")
      ->capture_default_str();
  addFaults(*command, options);
  addEnds(*command, options);
  command->footer(collectHelp);
  command->callback([&job, options] { job = [options] { return collect(*options); }; });
}

}  // namespace vantamo::tools::collect
