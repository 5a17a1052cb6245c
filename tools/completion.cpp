#include "tools/completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <set>

namespace vantamo::tools {
namespace {

// Where in the command line the word to be completed stands.
struct Place {
  const CLI::App* command = nullptr;
  const CLI::Option* value = nullptr;  // the option whose value comes next
  std::size_t positionals = 0;
  bool optionsEnded = false;
  std::set<const CLI::Option*> given;
};

bool looksLikeOption(const std::string& word) { return word.size() > 1 && word[0] == '-'; }

std::vector<const CLI::App*> commandsOf(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App*) { return true; });
}

const CLI::App* commandOf(const CLI::App& command, const std::string& name) {
  const auto all = commandsOf(command);
  const auto found = std::ranges::find(all, name, &CLI::App::get_name);
  return found == all.end() ? nullptr : *found;
}

void passOption(Place& place, const std::string& word) {
  const std::size_t equals = word.find('=');
  const CLI::Option* option = place.command->get_option_no_throw(word.substr(0, equals));
  if (option == nullptr) return;
  place.given.insert(option);
  if (equals == std::string::npos && option->get_items_expected_max() > 0) place.value = option;
}

void pass(Place& place, const std::string& word) {
  if (place.value != nullptr) {
    place.value = nullptr;
  } else if (!place.optionsEnded && word == "--") {
    place.optionsEnded = true;
  } else if (!place.optionsEnded && looksLikeOption(word)) {
    passOption(place, word);
  } else if (const CLI::App* command = commandOf(*place.command, word)) {
    place = {.command = command};
  } else {
    ++place.positionals;
  }
}

void writeKind(const CLI::Option& argument, std::ostream& lines) {
  const std::string type = argument.get_type_name();
  if (type.starts_with(fileType) || type.starts_with(folderType)) {
    lines << '@' << type.substr(0, type.find(':')) << '\n';
  }
}

void writeOptions(const Place& place, const std::string& start, std::ostream& lines) {
  for (const CLI::Option* option : place.command->get_options()) {
    if (!option->nonpositional() || place.given.contains(option)) continue;
    for (const std::string& name : option->get_lnames()) {
      const std::string shown = "--" + name;
      if (shown.starts_with(start)) lines << shown << '\n';
    }
  }
}

void writeCommands(const Place& place, const std::string& start, std::ostream& lines) {
  for (const CLI::App* command : commandsOf(*place.command)) {
    if (command->get_name().starts_with(start)) lines << command->get_name() << '\n';
  }
}

// The argument that comes next; the last one where it may be repeated.
const CLI::Option* positionalAt(const Place& place) {
  std::size_t before = 0;
  for (const CLI::Option* option : place.command->get_options()) {
    if (option->nonpositional()) continue;
    before += static_cast<std::size_t>(option->get_items_expected_max());
    if (place.positionals < before) return option;
  }
  return nullptr;
}

}  // namespace

void writeCompletions(const CLI::App& app, const std::vector<std::string>& words,
                      std::ostream& lines) {
  if (words.empty()) return;
  Place place{.command = &app};
  for (auto word = words.begin(); word != words.end() - 1; ++word) pass(place, *word);
  const std::string& start = words.back();
  if (place.value != nullptr) return writeKind(*place.value, lines);
  if (!place.optionsEnded && start.starts_with('-')) return writeOptions(place, start, lines);
  writeCommands(place, start, lines);
  if (const CLI::Option* argument = positionalAt(place)) return writeKind(*argument, lines);
  if (!place.optionsEnded && start.empty() && commandsOf(*place.command).empty()) {
    writeOptions(place, start, lines);
  }
}

}  // namespace vantamo::tools
