#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>

#include "tools/collect/command_line.h"
#include "tools/completion.h"
#include "tools/doctor.h"
#include "tools/help_text.h"
#include "tools/queue_command.h"
#include "tools/replay.h"
#include "tools/terminal.h"
#include "tools/waiting_time.h"
#include "vantamo/version.h"

namespace {

using namespace vantamo::tools;

constexpr int usageError = 2;

// What the command line asks for; answers the program's exit status.
using Job = std::function<int()>;

void addReplay(CLI::App& app, Job& job) {
  CLI::App* replay = app.add_subcommand(
      "replay",
      "Reads a script of library calls, one JSON object a line, and answers each on standard "
      "output.");
  const auto options = std::make_shared<ReplayOptions>();
  replay
      ->add_option("--bundle", options->bundle,
                   "The application's main bundle: the folder of VTMod.bundle and NQCore.bundle "
                   "(default: the folder of this program)")
      ->type_name(folderType);
  replay
      ->add_option("--drain", options->drainSeconds,
                   "How long to wait for delivery at the end of the script, 0 to 1000000")
      ->check(checkSeconds)
      ->type_name("SECONDS")
      ->capture_default_str();
  replay->add_option("script", options->script, "The script; - for standard input (default)")
      ->type_name(fileType);
  replay->footer(&replayHelp);
  replay->callback([&job, options] {
    options->colours = wantsColours();
    options->progress = wantsProgress();
    job = [options] { return vantamo::tools::replay(*options, std::cin, std::cout); };
  });
}

struct QueueCommandText {
  QueueAction action;
  const char* name;
  const char* description;
};

constexpr std::array<QueueCommandText, 5> queueCommands{{
    {QueueAction::list, "list",
     "Shows the queued messages, oldest first: id, time of acceptance (UTC), bytes, module."},
    {QueueAction::dead, "dead",
     "Shows the dead letters, which the endpoint has refused for good: id, status, reason, times "
     "of "
     "acceptance and refusal (UTC), bytes, module."},
    {QueueAction::replay, "replay",
     "Puts dead letters back into the queue, behind what waits, and shows their ids. The "
     "application's next run sends them."},
    {QueueAction::purge, "purge", "Erases dead letters and shows their ids."},
    {QueueAction::erase, "erase",
     "Erases every message, dead letter and file set aside, and shows the folders. The visitor's "
     "id "
     "is kept elsewhere."},
}};

void addQueueCommand(CLI::App& queue, const QueueCommandText& text, Job& job) {
  CLI::App* command = queue.add_subcommand(text.name, text.description);
  const auto options = std::make_shared<QueueOptions>();
  command
      ->add_option("dir", options->folder,
                   "The application's queue folder, <caches>/NQCore/<application>")
      ->type_name(folderType)
      ->required();
  command->add_flag("--json", options->json,
                    "One JSON object a line, in place of fields with tabs between them");
  if (text.action == QueueAction::list || text.action == QueueAction::dead) {
    command->add_flag("--bodies", options->bodies, "Show the bodies too");
  } else if (text.action == QueueAction::erase) {
    command->add_flag("--yes", options->confirmed, "Do it; without this nothing is erased");
  } else {
    command
        ->add_option("id", options->ids,
                     "Of which dead letters, as `queue dead` shows them (default: all)")
        ->type_name("ID");
  }
  command->footer(&queueHelp);
  command->callback([&job, options, action = text.action] {
    job = [options, action] { return runOnQueue(action, *options, std::cout, std::cerr); };
  });
}

void addQueue(CLI::App& app, Job& job) {
  CLI::App* queue = app.add_subcommand(
      "queue", "Looks into the queue of an application that does not run, and changes it.");
  queue->require_subcommand(1);
  for (const QueueCommandText& text : queueCommands) addQueueCommand(*queue, text, job);
  queue->footer(&queueHelp);
}

void addDoctor(CLI::App& app, Job& job) {
  CLI::App* doctor = app.add_subcommand(
      "doctor",
      "Checks settings, queue folder, the endpoint's name and connection, and the clock: a line "
      "each, with ok, warn or FAIL. Nothing is sent.");
  const auto options = std::make_shared<DoctorOptions>();
  doctor
      ->add_option("--bundle", options->bundle,
                   "The application's main bundle: the folder of VTMod.bundle and NQCore.bundle")
      ->type_name(folderType)
      ->required();
  doctor
      ->add_option("--application", options->application,
                   "The file name of the application's executable, which names its queue folder "
                   "when NQCore.bundle has no ApplicationId (default: any folder is tried)")
      ->type_name("NAME")
      ->check([](const std::string& name) {
        const bool isName =
            !name.empty() && name.find('/') == std::string::npos && name != "." && name != "..";
        return isName ? std::string() : "must be a file name, not " + name;
      });
  doctor
      ->add_option("--certificates", options->certificates,
                   "A PEM file of the authorities that the application trusts (default: the "
                   "system's)")
      ->type_name(fileType);
  doctor->footer(&doctorHelp);
  doctor->callback([&job, options] {
    options->colours = wantsColours();
    job = [options] { return examine(*options, std::cout); };
  });
}

int run(int argc, char** argv) {
  CLI::App app(
      "Drives the Vantamo library, examines what it has left, and shows the tags it sends.",
      "vantamo");
  app.require_subcommand(1);
  app.set_version_flag("--version", "vantamo " VANTAMO_VERSION_STRING,
                       "Print the version and exit");
  Job job;
  addReplay(app, job);
  addQueue(app, job);
  addDoctor(app, job);
  collect::addCollect(app, job);
  app.footer(&programHelp);
  // What a shell's completion asks: nothing for people, and so no command of the app.
  if (argc > 1 && argv[1] == std::string_view("__complete")) {
    writeCompletions(app, {argv + 2, argv + argc}, std::cout);
    return 0;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : usageError;
  }
  const int status = job();
  if (!std::cout.flush()) throw std::runtime_error("standard output cannot be written");
  return status;
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
