#pragma once

#include <spawn.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <map>
#include <set>

#include "tests/kit/figure.h"
#include "tests/kit/host_test.h"
#include "tools/local_endpoint.h"

namespace vantamo::test {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

/// Loops are long when VANTAMO_SOAK is 1.
inline bool isSoak() {
  const char* soak = std::getenv("VANTAMO_SOAK");
  return soak != nullptr && std::string_view(soak) == "1";
}
inline int loops(int usually, int soaking) { return isSoak() ? soaking : usually; }

/// A port of this machine that refuses connections, or accepts them and never answers.
class Port {
 public:
  enum class Kind { refusing, silent };
  explicit Port(Kind kind);
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;
  ~Port() { ::close(fd_); }
  [[nodiscard]] std::string url() const { return url_; }

 private:
  int fd_ = -1;
  std::string url_;
};

/// What a run of the host has told.
struct Result {
  int status = -1;
  std::map<std::string, std::string> lines;

  [[nodiscard]] long long operator[](const std::string& name) const {
    const auto line = lines.find(name);
    if (line != lines.end()) return std::stoll(line->second);
    ADD_FAILURE() << "the host has not told " << name << ", status " << status;
    return -1;
  }
};

/// One process of the host.
class HostProcess {
 public:
  HostProcess(const std::string& arguments, std::vector<std::string> environment,
              const std::string& errors);
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;
  ~HostProcess();

  void signal(int number) const { ::kill(pid_, number); }
  [[nodiscard]] pid_t pid() const { return pid_; }
  /// Waits until the host has told `name`, or has ended.
  void waitFor(const std::string& name);
  /// Waits for the host's end.
  Result wait();

 private:
  bool readLine();

  pid_t pid_ = -1;
  FILE* output_ = nullptr;
  Result result_;
};

/// What has become of the events that were accepted.
struct Tally {
  std::size_t accepted = 0;
  std::size_t lost = 0;
  std::size_t duplicates = 0;  ///< requests beyond the first for an id
  std::size_t differing = 0;   ///< of these, those with another key or body

  friend std::ostream& operator<<(std::ostream& out, const Tally& tally) {
    return out << tally.lost << " of " << tally.accepted << " lost, " << tally.duplicates
               << " sent twice";
  }
};

using Endpoint = tools::LocalEndpoint;

/// A test of the default core by way of a host in processes of its own.
class ReliabilityTest : public HostTest {
 protected:
  ReliabilityTest() { std::filesystem::create_directories(cacheHome); }
  ~ReliabilityTest() override {
    while (!mounted_.empty()) unmountLast();
  }

  /// Where the host posts to; `core`: more items of the core's settings.
  void configure(const std::string& url, const std::string& core = "") const;
  /// Starts a host with these arguments; `faults` as faults.cpp has it.
  [[nodiscard]] std::unique_ptr<HostProcess> start(const std::string& arguments,
                                                   const std::string& faults = "") const;
  /// The same, to its end.
  Result run(const std::string& arguments, const std::string& faults = "") const {
    return start(arguments, faults)->wait();
  }
  /// A run that takes nothing on and waits for delivery of what there is.
  Result drain() const {
    Result result = run("--flush 30000");
    EXPECT_EQ(result["flushed"], 1);
    return result;
  }

  [[nodiscard]] std::filesystem::path queueRoot() const { return cacheHome / "NQCore"; }
  /// Of the first process of the application.
  [[nodiscard]] std::filesystem::path queueFolder() const { return queueRoot() / "reliability/0"; }
  /// Accepted ids, and when, in microseconds.
  [[nodiscard]] std::map<std::string, long long> accepted() const;
  [[nodiscard]] Tally tally(Endpoint& endpoint) const;
  [[nodiscard]] static std::string contentOf(const std::filesystem::path& file);
  [[nodiscard]] static std::size_t occurrences(const std::string& text, const std::string& part);

  /// Mounts on `folder`, for this test and its hosts alone; false where that is not permitted.
  bool mount(const std::string& arguments, const std::filesystem::path& folder);
  void unmountLast();

  std::filesystem::path cacheHome = scratch() / "caches";
  const std::string log_ = (scratch() / "accepted.log").string();
  const std::string errors_ = (scratch() / "errors.log").string();

 private:
  std::vector<std::filesystem::path> mounted_;
};

}  // namespace vantamo::test
