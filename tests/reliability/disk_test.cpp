// Disks that are full or broken, files that are damaged, erased or planted, and power cuts.

#include <sqlite3.h>
#include <sys/stat.h>

#include <random>

#include "tests/reliability/reliability_test.h"

namespace vantamo::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* noMounts = "file systems cannot be mounted here";

// Requests beyond the first for an id, from `begin` on.
std::size_t resent(Endpoint& endpoint, std::size_t begin) {
  const auto requests = endpoint.wait(0);
  std::set<std::string> ids;
  for (std::size_t i = begin; i < requests.size(); ++i) ids.insert(requests[i].key("eid"));
  return requests.size() - begin - ids.size();
}

// Erases what a host at work may be writing to, and making anew, at the same moment.
void eraseInUse(const fs::path& path) {
  std::error_code failed;
  do fs::remove_all(path, failed);
  while (failed == std::errc::directory_not_empty);
  EXPECT_FALSE(failed) << path << ": " << failed.message();
}

TEST_F(ReliabilityTest, AFullDiskLosesNothingAndRepeatsNothing) {
  const fs::path full = scratch() / "full";
  const std::string faults = "error=28,growing=1,while=" + full.string();
  Endpoint endpoint([&full](std::size_t number) {
    if (number == 300) std::ofstream(full) << "now";
    return 204;
  });
  configure(endpoint.url(), R"(,"RetryBaseSeconds":0.05,"RetryCapSeconds":0.2)");

  std::ofstream(full) << "now";
  auto host = start("--prefix insert --count 300 --pace 2000 --flush 20000", faults + ",first=60");
  host->waitFor("refused-first");
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  fs::remove(full);
  const auto inserted = host->wait();
  EXPECT_EQ(inserted["flushed"], 1);
  EXPECT_GT(inserted["refused-by-storage"], 0);
  EXPECT_EQ(tally(endpoint).duplicates, 0U);

  const Port refusing(Port::Kind::refusing);
  configure(refusing.url());
  run("--prefix delete --count 400 --flush 300 --end exit");
  configure(endpoint.url(), R"(,"RetryBaseSeconds":0.05,"RetryCapSeconds":0.2)");
  host = start("--flush 20000", faults);
  static_cast<void>(endpoint.wait(302));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));  // a loop would be seen
  const std::size_t repeated = resent(endpoint, 0);
  EXPECT_EQ(repeated, 0U);
  fs::remove(full);
  EXPECT_EQ(host->wait()["flushed"], 1);
  const Tally tally = this->tally(endpoint);
  EXPECT_EQ(tally.duplicates, 0U);
  figure("A full disk loses no accepted event and repeats none",
         "it fills up before messages are written, and before delivered ones are removed; space "
         "comes back later",
         text(inserted["refused-by-storage"], " refused and counted, ", tally));
}

TEST_F(ReliabilityTest, ASmallDiskAndAReadOnlyOne) {
  if (!mount("-t tmpfs -o size=1m tmpfs", queueRoot())) GTEST_SKIP() << noMounts;
  const Port refusing(Port::Kind::refusing);
  Endpoint endpoint;
  configure(refusing.url());
  const auto filled = run("--prefix small --count 4000 --flush 300 --end exit");
  EXPECT_GT(filled["refused-by-storage"], 0);
  configure(endpoint.url(), R"(,"RetryBaseSeconds":0.05,"RetryCapSeconds":0.2)");
  run("--flush 1000");
  const std::size_t arrived = endpoint.wait(0).size();
  const std::size_t repeated = resent(endpoint, 0);
  EXPECT_EQ(repeated, 0U);
  ASSERT_TRUE(mount("-o remount,size=8m", queueRoot()));
  drain();
  const Tally tally = this->tally(endpoint);
  figure("The same with a real disk", "a queue folder of 1 MiB, which is given more space later",
         text(filled["refused-by-storage"], " refused and counted, ", arrived, " of ",
              tally.accepted, " delivered while it was full, ", tally));

  fs::remove(log_);
  ASSERT_TRUE(mount("-o remount,ro", queueRoot()));
  const std::size_t before = endpoint.wait(0).size();
  const auto result = run("--prefix ro --count 50 --flush 20000");
  EXPECT_EQ(result["durable"], 0);
  EXPECT_EQ(this->tally(endpoint).accepted, 50U);
  EXPECT_EQ(endpoint.wait(0).size() - before, 50U);
  figure("Without a folder to write to, messages are kept in memory and delivered",
         "a read-only queue folder", "50 of 50 delivered");
}

TEST_F(ReliabilityTest, AWriteThatFailsLosesNothing) {
  Endpoint endpoint;
  configure(endpoint.url(), R"(,"RetryBaseSeconds":0.05,"RetryCapSeconds":0.2)");
  const std::vector<int> usually = {1, 2, 3, 4, 6, 9, 14, 25, 60};
  const int count = loops(static_cast<int>(usually.size()), 120);
  long long refused = 0;
  for (int i = 0; i < count; ++i) {
    const std::string n = std::to_string(isSoak() ? i + 1 : usually[static_cast<std::size_t>(i)]);
    for (const std::string& until : {n, std::string("1000000")}) {
      const auto result = run(text("--prefix e", n, "-", until, ". --count 30 --pace 300 --flush ",
                                   until == n ? "20000" : "300"),
                              "error=5,first=" + n + ",last=" + until);
      refused += result["refused-by-storage"];
      if (until == n) {
        EXPECT_EQ(result["flushed"], 1) << n;
      }
    }
  }
  drain();
  const Tally tally = this->tally(endpoint);
  figure(
      "A write that fails loses no accepted event",
      text("an input/output error at the n-th write, or from it on, for ", count, " values of n"),
      text(refused, " refused and counted, ", tally));
}

void overwrite(const fs::path& file, std::size_t position, const std::string& bytes) {
  std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
  stream.seekp(static_cast<std::streamoff>(position));
  stream << bytes;
}

std::string randomBytes(std::size_t size) {
  std::mt19937 random(1);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

std::size_t sizeOf(const fs::path& file) { return static_cast<std::size_t>(fs::file_size(file)); }

void addTrigger(const fs::path& file) {
  sqlite3* database = nullptr;
  sqlite3_open(file.c_str(), &database);
  EXPECT_EQ(
      sqlite3_exec(database,
                   "CREATE TRIGGER t AFTER INSERT ON messages BEGIN DELETE FROM messages; END",
                   nullptr, nullptr, nullptr),
      SQLITE_OK);
  sqlite3_close(database);
}

TEST_F(ReliabilityTest, ADamagedQueueFileIsSetAsideAndReadAsFarAsPossible) {
  struct Damage {
    std::string name;
    void (*apply)(const fs::path& file);
    std::size_t leastSaved;
  };
  const std::vector<Damage> damages = {
      {"random bytes", [](const fs::path& f) { overwrite(f, 0, randomBytes(sizeOf(f))); }, 0},
      {"zeros", [](const fs::path& f) { overwrite(f, 0, std::string(sizeOf(f), '\0')); }, 0},
      {"half of it cut off", [](const fs::path& f) { fs::resize_file(f, fs::file_size(f) / 2); },
       20},
      {"one page of random bytes",
       [](const fs::path& f) { overwrite(f, sizeOf(f) / 4096 / 2 * 4096, randomBytes(4096)); }, 80},
      {"a foreign trigger", &addTrigger, 100}};
  const Port refusing(Port::Kind::refusing);
  configure(refusing.url());
  run("--prefix old --count 100 --flush 300 --end exit");
  run("--flush 300 --end exit");  // moves all to the database
  const fs::path sound = scratch() / "sound";
  fs::copy(queueRoot(), sound, fs::copy_options::recursive);
  std::string measured;
  for (const Damage& damage : damages) {
    SCOPED_TRACE(damage.name);
    fs::remove_all(queueRoot());
    fs::copy(sound, queueRoot(), fs::copy_options::recursive);
    damage.apply(queueFolder() / "queue.sqlite");
    const std::string bytes = contentOf(queueFolder() / "queue.sqlite");
    Endpoint endpoint;
    configure(endpoint.url());
    EXPECT_EQ(run("--prefix new --count 20 --flush 20000")["flushed"], 1);
    EXPECT_EQ(resent(endpoint, 0), 0U);
    const std::size_t saved = endpoint.wait(0).size() - 20;
    EXPECT_GE(saved, damage.leastSaved);
    bool kept = false;
    for (const auto& entry : fs::directory_iterator(queueFolder())) {
      const bool aside = entry.path().filename().string().starts_with("queue.sqlite.aside-");
      kept = kept || (aside && contentOf(entry.path()) == bytes);
    }
    EXPECT_TRUE(kept);
    measured += text(measured.empty() ? "" : "; ", damage.name, ": ", saved);
  }
  figure("A damaged or foreign queue file is kept as it is, and read as far as possible",
         "a file with 100 messages is damaged between two runs; 20 new events are sent each time",
         text("saved of 100: ", measured, "; all new ones delivered"));
}

TEST_F(ReliabilityTest, FilesMayBeErasedWhileInUse) {
  Endpoint endpoint([](std::size_t) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return 204;
  });
  configure(endpoint.url());
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {"database", {"queue.sqlite"}},
      {"log", {"queue.sqlite-wal"}},
      {"journal", {"journal-00000001.log", "journal-00000002.log"}},
      {"marks", {"delivered"}},
      {"lock", {"owner.lock"}},
      {"folder", {""}},
      {"all", {"../.."}}};
  const int rounds = loops(1, 10);
  for (int round = 0; round < rounds; ++round) {
    for (const auto& [name, files] : cases) {
      SCOPED_TRACE(name);
      const auto host =
          start(text("--prefix ", name, round, ". --count 200 --pace 500 --flush 30000"));
      static_cast<void>(endpoint.wait(endpoint.wait(0).size() + 30));
      for (const std::string& file : files) eraseInUse(queueFolder() / file);
      EXPECT_EQ(host->wait()["flushed"], 1);
    }
  }
  drain();
  const Tally tally = this->tally(endpoint);
  figure("Files that are erased while in use are made anew from what is open",
         text("database, log, journal, marks, lock, the folder and all folders, ", rounds,
              " times each while a host fires"),
         text(tally));
}

TEST_F(ReliabilityTest, APowerCutTakesOnlyTheLastMoment) {
  const fs::path image = scratch() / "disk";
  const fs::path copy = scratch() / "copy";
  const std::string make = "truncate -s 16M '" + image.string() + "' && mkfs.ext4 -q '" +
                           image.string() + "' 2>/dev/null";
  if (std::system(make.c_str()) != 0 ||
      !mount("-o loop '" + image.string() + "'", scratch() / "disk-mount")) {
    GTEST_SKIP() << noMounts;
  }
  Endpoint endpoint;
  const Port refusing(Port::Kind::refusing);
  const Port silent(Port::Kind::silent);
  std::string measured;
  for (const auto& [name, url] : {std::pair{"answering", endpoint.url()},
                                  {"refusing", refusing.url()},
                                  {"silent", silent.url()}}) {
    SCOPED_TRACE(name);
    cacheHome = scratch() / "disk-mount" / name;
    fs::create_directories(cacheHome);
    std::ignore = std::system("sync");
    fs::remove(log_);
    configure(url, R"(,"RequestTimeoutSeconds":1,"RetryBaseSeconds":0.01)");
    const auto host = start(text("--prefix ", name, " --count 1000000 --pace 1000"));
    host->waitFor("started");
    std::this_thread::sleep_for(std::chrono::milliseconds(loops(2500, 7300)));
    host->signal(SIGSTOP);
    ::waitpid(host->pid(), nullptr, WUNTRACED);
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const long long cut = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    fs::copy_file(image, copy, fs::copy_options::overwrite_existing);
    host->signal(SIGKILL);
    host->wait();
    ASSERT_TRUE(mount("-o loop '" + copy.string() + "'", scratch() / "copy-mount"));
    cacheHome = scratch() / "copy-mount" / name;
    configure(endpoint.url());
    drain();
    unmountLast();
    std::set<std::string> arrived;
    for (const auto& request : endpoint.wait(0)) arrived.insert(request.key("eid"));
    long long window = 0;
    EXPECT_GT(accepted().size(), 100U);
    for (const auto& [id, time] : accepted()) {
      if (!arrived.contains(id)) window = std::max(window, cut - time);
    }
    EXPECT_LT(window, 2000000);
    measured += text(measured.empty() ? "" : ", ", name, " ", milliseconds(window));
  }
  figure("A power cut takes only the last moment's events",
         "the disk's content is copied while the host fires, and a run on the copy delivers: age "
         "of the oldest event that is missing, with an endpoint that is...",
         measured);
}

TEST_F(ReliabilityTest, FilesArePrivateAndPlantedOnesAreLeftAlone) {
  Endpoint endpoint;
  configure(endpoint.url());
  std::size_t entries = 0;
  for (const int mask : {0, 077, 0777}) {
    SCOPED_TRACE(mask);
    fs::remove_all(cacheHome);
    fs::create_directories(cacheHome);
    const auto host =
        start(text("--umask ", mask, " --prefix ", mask, ". --count 1000000 --pace 1000"));
    static_cast<void>(endpoint.wait(endpoint.wait(0).size() + 20));
    for (const auto& entry : fs::recursive_directory_iterator(cacheHome)) {
      const fs::file_status status = entry.symlink_status();
      if (!fs::exists(status)) continue;  // the host has finished with it
      const auto mode = static_cast<unsigned>(status.permissions());
      EXPECT_EQ(mode, entry.is_directory() ? 0700U : 0600U) << entry.path();
      ++entries;
    }
    host->signal(SIGKILL);
    host->wait();
    drain();
  }
  figure("Files are for their user alone", "umask 000, 077 and 777",
         text("all ", entries, " files 0600 and folders 0700"));

  const fs::path precious = scratch() / "precious";
  int planted = 0;
  for (const std::string name : {"queue.sqlite", "queue.sqlite-wal", "queue.sqlite-journal",
                                 "journal-00000001.log", "delivered", "owner.lock"}) {
    for (const bool symbolic : {true, false}) {
      SCOPED_TRACE(name);
      fs::remove_all(queueRoot());
      fs::create_directories(queueFolder());
      std::ofstream(precious) << "precious";
      ::chmod(precious.c_str(), 0644);
      const auto before = fs::last_write_time(precious);
      if (symbolic) fs::create_symlink(precious, queueFolder() / name);
      if (!symbolic) fs::create_hard_link(precious, queueFolder() / name);
      const auto result = run(text("--prefix l", planted, ". --count 10 --flush 20000"));
      EXPECT_EQ(result["flushed"], 1);
      EXPECT_EQ(contentOf(precious), "precious");
      EXPECT_EQ(fs::last_write_time(precious), before);
      EXPECT_EQ(static_cast<unsigned>(fs::status(precious).permissions()), 0644U);
      ++planted;
    }
  }
  const Tally tally = this->tally(endpoint);
  figure("Links that are planted in the place of files are neither followed nor written",
         text(planted, " symbolic and hard links to a file elsewhere"),
         text("that file unchanged; ", tally));
}

}  // namespace
}  // namespace vantamo::test
