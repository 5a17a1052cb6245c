#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <iostream>

#include "tools/replay.h"

namespace {

constexpr int usageError = 2;

std::string checkSeconds(const std::string& text) {
  double seconds = -1;
  const bool isNumber = CLI::detail::lexical_cast(text, seconds);
  return isNumber && vantamo::tools::isWaitingTime(seconds)
             ? std::string()
             : "SECONDS must be a number from 0 to 1000000, not " + text;
}

int run(int argc, char** argv) {
  CLI::App app("Drives the Vantamo library without writing C++.", "vantamo");
  app.require_subcommand(1);

  vantamo::tools::ReplayOptions options;
  CLI::App* replay = app.add_subcommand(
      "replay",
      "Reads a script of library calls, one JSON object a line, and answers each on standard "
      "output.\nExit status: 0 all well-formed and delivered, 1 a malformed line, 2 a usage error "
      "or an unreadable bundle, 3 messages left for the next run.");
  replay->add_option("--bundle", options.bundle,
                     "The application's main bundle: the folder of VTMod.bundle and NQCore.bundle "
                     "(default: the folder of this program)");
  replay
      ->add_option("--drain", options.drainSeconds,
                   "How long to wait for delivery at the end of the script")
      ->check(CLI::Validator(checkSeconds, "SECONDS"))
      ->capture_default_str();
  replay->add_option("script", options.script, "The script; - for standard input (default)");

  try {
    app.parse(argc, argv);
    return vantamo::tools::replay(options, std::cin, std::cout);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : usageError;
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vantamo: %s\n", error.what());
    return usageError;
  }
}
