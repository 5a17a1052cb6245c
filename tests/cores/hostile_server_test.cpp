// The core's HTTP client against servers that do not keep to the rules.

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdlib>

#include "cores/default/curl_transport.h"
#include "cores/default/sender.h"
#include "platform/unique_fd.h"
#include "tests/kit/figure.h"
#include "tests/kit/host_test.h"
#include "tools/local_endpoint.h"

// Called on a thread of libcurl while it looks up a name.
static std::function<void()> atLookUp;  // NOLINT: the function below has no context

extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                           addrinfo** found) {
  const bool looksUp = hints == nullptr || (hints->ai_flags & AI_NUMERICHOST) == 0;
  if (looksUp && atLookUp) return atLookUp(), EAI_FAIL;
  const auto next = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  return next(name, service, hints, found);
}

namespace vantamo::test {
namespace {

using core::CurlTransport;
using platform::UniqueFd;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;
using namespace std::string_literals;

// What follows upon the first bytes of an answer.
enum class Then { nothing, close, reset, repeat, drip, neverAccept };

struct Behaviour {
  Then then = Then::nothing;
  std::string text;
  std::string more;
};

class RawServer {
 public:
  explicit RawServer(
      Behaviour behaviour, std::function<void()> atRequest = [] {})
      : behaviour_(std::move(behaviour)), atRequest_(std::move(atRequest)) {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address_;
    auto* const name = reinterpret_cast<sockaddr*>(&address_);
    const int fd = listener_.get();
    EXPECT_EQ(::bind(fd, name, size) | ::listen(fd, 0) | ::getsockname(fd, name, &size), 0);
    if (behaviour_.then != Then::neverAccept) {
      thread_ = std::thread([this] { serve(); });
      return;
    }
    for (int i = 0; i < 4; ++i) {
      backlog_.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
      ::connect(backlog_.back().get(), name, size);
    }
  }
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;
  ~RawServer() {
    ::shutdown(listener_.get(), SHUT_RDWR);
    if (thread_.joinable()) thread_.join();
  }

  [[nodiscard]] std::string url() const {
    return "http://127.0.0.1:" + std::to_string(ntohs(address_.sin_port)) + "/";
  }
  std::atomic<int> connections{0};
  std::atomic<int> requests{0};

 private:
  static bool say(int fd, const std::string& text) {
    return ::send(fd, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
  }
  // Reads a request, which ends with "{}"; false when the client goes away.
  static bool hear(int fd) {
    std::string heard;
    for (char c = 0; !heard.ends_with("{}"); heard += c) {
      if (::recv(fd, &c, 1, 0) != 1) return false;
    }
    return true;
  }
  void serve() {
    for (;;) {
      const UniqueFd fd(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!fd) return;
      ++connections;
      while (hear(fd.get())) {
        ++requests;
        atRequest_();
        if (!say(fd.get(), behaviour_.text)) break;
        if (behaviour_.then != Then::nothing && !goOn(fd.get())) break;
      }
    }
  }
  bool goOn(int fd) {
    const linger resetting{1, 0};
    pollfd gone{fd, POLLIN, 0};
    if (behaviour_.then == Then::reset) {
      ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &resetting, sizeof resetting);
    } else if (behaviour_.then != Then::close) {
      const int pause = behaviour_.then == Then::drip ? 10 : 0;
      while (say(fd, behaviour_.more) && ::poll(&gone, 1, pause) == 0) continue;
    }
    return false;
  }

  const Behaviour behaviour_;
  const std::function<void()> atRequest_;
  sockaddr_in address_{};
  UniqueFd listener_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  std::vector<UniqueFd> backlog_;
  std::thread thread_;
};

std::shared_ptr<core::CurlOptions> shortTimes() {
  auto options = std::make_shared<core::CurlOptions>();
  options->connectTimeout = options->requestTimeout = seconds(1);
  return options;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool isSanitized = true;  // which takes memory of its own
#else
constexpr bool isSanitized = false;
#endif

std::ptrdiff_t descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}
long residentBytes() {
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  return pages * ::sysconf(_SC_PAGESIZE);
}

// Makes one attempt to deliver a message; the status, and whether the message is kept.
std::pair<int, bool> attempt(const std::string& url) {
  const auto queue = core::makeMemoryQueue();
  const auto requestFor = [&](const auto&) { return default_core::HttpRequest{url, {}, "{}"}; };
  core::Sender sender({.requestFor = requestFor,
                       .now = &Clock::now,
                       .wallClock = &std::chrono::system_clock::now,
                       .random = [] { return 1.0; }});
  sender.setSending(true);
  queue->append({platform::randomUuid(), "M", "{}", 0});
  CurlTransport transport(shortTimes());
  std::vector<default_core::DeliveryReport> reports;
  static_cast<void>(sender.step(*queue, transport, &reports));
  return {reports.at(0).status, queue->front() != nullptr};
}

TEST_F(HostTest, AHostileServerCostsLittleAndNoMessage) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string busy = "HTTP/1.1 503 Busy\r\n";
  const std::string found = "HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: ";
  const std::string chunk = "10000\r\n" + std::string(65536, 'x') + "\r\n";
  const std::string chunked = "Transfer-Encoding: chunked\r\n\r\n";
  const std::vector<std::pair<Behaviour, int>> cases = {
      {{Then::nothing, "HTTP/1.1 204 No Content\r\n\r\n"}, 204},
      {{Then::neverAccept}, 0},
      {{Then::nothing}, 0},
      {{Then::drip, "HTTP/1.1 200 ", "x"}, 0},
      {{Then::close}, 0},
      {{Then::reset, "HTTP/1.1 2"}, 0},
      {{Then::reset, ok + "Content-Length: 9\r\n\r\n{"}, 200},
      {{Then::repeat, ok + chunked, chunk}, 200},  // and so on: until the client has had enough
      {{Then::repeat, busy + chunked, chunk}, 503},
      {{Then::repeat, busy, "X: " + chunk}, 503},
      {{Then::repeat, busy + "X: ", chunk.substr(10, 4096)}, 503},
      {{Then::repeat, "", "HTTP/1.1 100 Continue\r\n\r\n"}, 0},
      {{Then::close, "\x16\x03\x00\x01\r\n\r\n"s}, 0},
      {{Then::close, "<html>HTTP/0.9</html>"}, 0},
      {{Then::nothing, found + "file:///etc/passwd\r\n\r\n"}, 302},
      {{Then::nothing, found + "http://127.0.0.2:1/\r\n\r\n"}, 302},
      {{Then::nothing, found + "/other\r\n\r\n"}, 302},
      {{Then::nothing, "HTTP/1.1 999 X\r\nContent-Length: 0\r\n\r\n"}, 999},
      {{Then::close, "HTTP/1.1 000 X\r\n\r\n"}, 0},
      {{Then::close, "HTTP/1.1 20 X\r\n\r\n"}, 0},
      {{Then::close, "HTTP/1.1 2000 X\r\n\r\n"}, 0}};
  long resident = 0;
  std::ptrdiff_t open = 0;
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const auto begun = Clock::now();
    {
      const RawServer server(cases[i].first);
      const auto [status, kept] = attempt(server.url());
      EXPECT_EQ(status, cases[i].second) << i;
      EXPECT_EQ(kept, status < 200 || status > 299) << i;
      EXPECT_LE(server.requests, 1) << i;
    }
    EXPECT_LT(Clock::now() - begun, seconds(10)) << i;
    if (i == 0) resident = residentBytes(), open = descriptors();  // what is loaded once is loaded
    EXPECT_EQ(descriptors(), open) << i;
  }
  const long grown = residentBytes() - resident;
  EXPECT_TRUE(isSanitized || grown < 8L << 20U) << grown;
  figure("A hostile server does no harm",
         text(cases.size(),
              " behaviours: silence, drips, resets, endless headers and bodies, "
              "garbage, redirects"),
         text("memory grew by ", grown / 1024,
              " KiB, no descriptor is left, every message without "
              "a 2xx answer is kept"));
}

// Unpacked, it would be malformed and cost the connection.
TEST_F(HostTest, ACompressedAnswerIsNotUnpacked) {
  const RawServer server(
      {.text = "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 4\r\n\r\njunk"});
  CurlTransport transport(shortTimes());
  for (int i = 0; i < 2; ++i) EXPECT_EQ(transport.post({server.url(), {}, "{}"}).status, 200);
  EXPECT_EQ(server.connections, 1);
}

TEST_F(HostTest, AProgramStartedDuringARequestInheritsNothingOfIt) {
  const auto inherited = [&] {
    const std::string file = scratch().string() + "/descriptors";
    EXPECT_EQ(std::system(("ls /proc/self/fd > " + file).c_str()), 0);
    std::ifstream names(file);
    return std::string(std::istreambuf_iterator<char>(names), {});
  };
  const std::string before = inherited();
  std::string during;
  const RawServer server({.text = "HTTP/1.1 204 X\r\n\r\n"}, [&] { during = inherited(); });
  EXPECT_EQ(CurlTransport(shortTimes()).post({server.url(), {}, "{}"}).status, 204);
  EXPECT_EQ(during, before);

  // The thread that looks a name up may run before its descriptors are seen to.
  during.clear();
  atLookUp = [&] {
    for (int i = 0; i < 100 && during != before; ++i) during = inherited();
  };
  const auto options = std::make_shared<core::CurlOptions>();
  EXPECT_EQ(CurlTransport(options).post({"http://tags.example/", {}, "{}"}).status, 0);
  EXPECT_EQ(during, before);
  atLookUp = nullptr;
}

// Two authorities and what they have issued; one certificate is trusted by itself, but expired.
constexpr const char* makeCertificates = R"(
  make() {
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj "/CN=$1" -days 9 \
      -addext "subjectAltName=$2" -keyout $1.key -out $1.pem ${3:+-CA $3.pem -CAkey $3.key}
  }
  { make ours DNS:a && make theirs DNS:a && make self IP:127.0.0.1 &&
    make good IP:127.0.0.1 ours && make other DNS:other.example ours &&
    make foreign IP:127.0.0.1 theirs && make expired IP:127.0.0.1 &&
    openssl x509 -in expired.pem -signkey expired.key -days -1 -out old.pem &&
    mv old.pem expired.pem && cat expired.pem >> ours.pem; } > log 2>&1)";

TEST_F(HostTest, NothingIsSentToAServerThatIsNotVerified) {
  if (std::system("command -v openssl > /dev/null") != 0) GTEST_SKIP() << "no program openssl";
  const std::string folder = scratch().string() + "/";
  ASSERT_EQ(std::system(("cd " + folder + makeCertificates).c_str()), 0);
  const auto options = std::make_shared<core::CurlOptions>();
  options->certificateFile = folder + "ours.pem";
  for (const auto& [certificate, error] : {std::pair("good"s, ""),
                                           {"other", "no alternative certificate subject name"},
                                           {"expired", "expired"},
                                           {"self", "self-signed"},
                                           {"foreign", "local issuer"}}) {
    httplib::SSLServer server((folder + certificate + ".pem").c_str(),
                              (folder + certificate + ".key").c_str());
    std::atomic<int> arrived = 0;
    server.set_pre_routing_handler([&](const auto&, httplib::Response& response) {
      ++arrived;
      response.status = 204;
      return httplib::Server::HandlerResponse::Handled;
    });
    const int port = server.bind_to_any_port("127.0.0.1");
    std::thread thread([&server] { server.listen_after_bind(); });
    while (!server.is_running()) std::this_thread::yield();
    const std::string url = "https://127.0.0.1:" + std::to_string(port) + "/";
    const auto response = CurlTransport(options).post({url, {}, "{}"});
    const std::string problem = CurlTransport(options).connect(url);
    server.stop();
    thread.join();
    EXPECT_EQ(response.status, certificate == "good" ? 204 : 0);
    EXPECT_THAT(response.error, testing::HasSubstr(error));
    EXPECT_EQ(problem, response.error);
    EXPECT_EQ(arrived, certificate == "good" ? 1 : 0);
  }
  figure("Nothing is sent to a server that is not verified",
         "a certificate of another host, an expired one, its own and an unknown authority's",
         "0 of 4 requests have arrived; with a good one it has");
}

}  // namespace
}  // namespace vantamo::test
