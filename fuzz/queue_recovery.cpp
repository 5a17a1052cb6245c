// Whatever stands in the place of a queue's files, the queue opens, takes a message and gives it
// back, and sends on nothing that could not be sent.

#include <algorithm>

#include "cores/default/durable_queue.h"
#include "cores/default/queue_store.h"
#include "fuzz/fuzz.h"

// The first byte chooses the file; of a database, the rest is written over a sound one.
void vantamo::fuzz::check(std::string_view input) {
  if (input.empty()) return;
  const std::string folder = (scratchFolder() / "queue").string();
  std::filesystem::remove_all(folder);
  const std::string id = "0a1b2c3d-0a1b-4c2d-8e3f-0a1b2c3d4e5f";
  constexpr std::array<const char*, 4> names = {"queue.sqlite", "queue.sqlite-wal", "delivered",
                                                "journal-00000009.log"};
  const auto choice = static_cast<unsigned char>(input[0]);
  {
    core::DurableQueue queue(folder);
    queue.append({id, "VTMod", "old", 0});
    static_cast<void>(queue.takeIn());
  }
  const auto path = std::filesystem::path(folder) / "0" / names[choice % names.size()];
  std::string content = readFile(path);
  const std::size_t at = choice >= 128 ? content.size() / 128 * (choice - 128U) : 0;
  content.resize(std::max(content.size(), at + input.size() - 1));
  std::ranges::copy(input.substr(1), content.begin() + static_cast<std::ptrdiff_t>(at));
  writeFile(path, choice % 8 < 4 ? content : std::string(input.substr(1)));

  core::DurableQueue queue(folder);
  queue.append({id.substr(0, 35) + "0", "VTMod", "new", 0});
  bool found = false;
  for (int attempts = 0; attempts < 3 && !found; ++attempts) {
    static_cast<void>(queue.takeIn());
    while (const core::QueuedMessage* front = queue.front()) {
      found = found || front->body == "new";
      queue.delivered(front->id);
    }
  }
  require(found, "a queue takes and gives messages whatever it has found");
}
