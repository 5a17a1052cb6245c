#include "tests/reliability/reliability_test.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>

namespace vantamo::test {
namespace {

namespace fs = std::filesystem;

// The environment of this process with some variables replaced.
std::vector<std::string> environmentWith(const std::vector<std::string>& changes) {
  std::vector<std::string> variables = changes;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string variable = *entry;
    const std::string name = variable.substr(0, variable.find('=') + 1);
    const auto isChanged = [&name](const std::string& change) { return change.starts_with(name); };
    if (std::ranges::none_of(changes, isChanged)) variables.push_back(variable);
  }
  return variables;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

Port::Port(Kind kind) : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(fd_, generic, size) != 0 || ::getsockname(fd_, generic, &size) != 0 ||
      (kind == Kind::silent && ::listen(fd_, 1000) != 0)) {
    throw std::system_error(errno, std::generic_category(), "a port");
  }
  url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/collect";
}

HostProcess::HostProcess(const std::string& arguments, std::vector<std::string> environment,
                         const std::string& errors) {
  std::istringstream words(arguments);
  std::vector<std::string> argv{std::istream_iterator<std::string>(words), {}};
  std::array<int, 2> pipe{};
  if (::pipe2(pipe.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  posix_spawn_file_actions_t actions{};
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(),
                                   O_WRONLY | O_CREAT | O_APPEND, 0600);
  const int failed = posix_spawn(&pid_, VANTAMO_RELIABILITY_HOST, &actions, nullptr,
                                 pointersTo(argv).data(), pointersTo(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipe[1]);
  output_ = ::fdopen(pipe[0], "r");
  if (failed != 0) throw std::system_error(failed, std::generic_category(), "the host");
}

HostProcess::~HostProcess() {
  if (result_.status == -1) {
    signal(SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  std::fclose(output_);
}

bool HostProcess::readLine() {
  std::array<char, 1000> line{};
  if (std::fgets(line.data(), line.size(), output_) == nullptr) return false;
  std::string text = line.data();
  text.pop_back();
  const std::size_t space = text.find(' ');
  result_.lines[text.substr(0, space)] = text.substr(space + 1);
  return true;
}

void HostProcess::waitFor(const std::string& name) {
  while (!result_.lines.contains(name) && readLine()) continue;
}

Result HostProcess::wait() {
  while (readLine()) continue;
  ::waitpid(pid_, &result_.status, 0);
  EXPECT_TRUE(result_.status == 0 || WTERMSIG(result_.status) == SIGKILL) << result_.status;
  return result_;
}

void ReliabilityTest::configure(const std::string& url, const std::string& core) const {
  writeSettings("VTMod", R"({"PostMessageUrl":")" + url +
                             R"(","AppName":"App","ClientId":"1","CaptureAllOfflineTags":true})");
  writeSettings("NQCore", R"({"ApplicationId":"reliability")" + core + "}");
}

std::unique_ptr<HostProcess> ReliabilityTest::start(const std::string& arguments,
                                                    const std::string& faults) const {
  // A process that ends without a shutdown leaves what OpenSSL keeps for the core's thread.
  return std::make_unique<HostProcess>(
      text("host --bundle ", bundle().string(), " --log ", log_, ' ', arguments),
      environmentWith({"XDG_CACHE_HOME=" + cacheHome.string(), "VANTAMO_FAULTS=" + faults,
                       "ASAN_OPTIONS=detect_leaks=0"}),
      errors_);
}

std::map<std::string, long long> ReliabilityTest::accepted() const {
  std::map<std::string, long long> ids;
  std::ifstream log(log_);
  std::string id;
  for (long long time = 0; log >> id >> time;) ids[id] = time;
  return ids;
}

Tally ReliabilityTest::tally(Endpoint& endpoint) const {
  const auto requests = endpoint.wait(0);
  std::map<std::string, const Endpoint::Received*> first;
  std::set<std::string> keys;
  Tally tally;
  for (const auto& request : requests) {
    const std::string key = request.header("Idempotency-Key");
    const auto [known, isNew] = first.emplace(request.key("eid"), &request);
    if (isNew) {
      EXPECT_TRUE(keys.insert(key).second) << "one key for two messages: " << key;
      continue;
    }
    ++tally.duplicates;
    const bool same =
        known->second->header("Idempotency-Key") == key && known->second->body == request.body;
    tally.differing += same ? 0 : 1;
  }
  for (const auto& [id, time] : accepted()) {
    ++tally.accepted;
    tally.lost += first.contains(id) ? 0 : 1;
  }
  EXPECT_GT(tally.accepted, 0U);
  EXPECT_EQ(tally.lost, 0U);
  EXPECT_EQ(tally.differing, 0U);
  return tally;
}

std::string ReliabilityTest::contentOf(const fs::path& file) {
  std::ostringstream content;
  content << std::ifstream(file, std::ios::binary).rdbuf();
  return content.str();
}

std::size_t ReliabilityTest::occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

bool ReliabilityTest::mount(const std::string& arguments, const fs::path& folder) {
  if (mounted_.empty() && (::unshare(CLONE_NEWNS) != 0 ||
                           ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)) {
    return false;
  }
  fs::create_directories(folder);
  const std::string command = "mount " + arguments + " '" + folder.string() + "' 2>/dev/null";
  if (std::system(command.c_str()) != 0) return false;
  mounted_.push_back(folder);
  return true;
}

void ReliabilityTest::unmountLast() {
  ::umount2(mounted_.back().c_str(), MNT_DETACH);
  mounted_.pop_back();
}

}  // namespace vantamo::test
