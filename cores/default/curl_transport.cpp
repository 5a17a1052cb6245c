#include "cores/default/curl_transport.h"

#include <curl/curl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <stdexcept>

#include "cores/default/curl_wakeup.h"
#include "cores/default/fork_guard.h"
#include "cores/default/network_state.h"
#include "platform/environment.h"
#include "platform/url_host.h"

namespace vantamo::core {
namespace {

struct SlistDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using Slist = std::unique_ptr<curl_slist, SlistDeleter>;

Slist headerList(const default_core::HttpRequest& request) {
  Slist list;
  const auto append = [&list](const std::string& line) {
    curl_slist* extended = curl_slist_append(list.get(), line.c_str());
    if (extended == nullptr) throw std::bad_alloc();
    static_cast<void>(list.release());
    list.reset(extended);
  };
  for (const auto& [name, value] : request.headers) {
    append(value.empty() ? name + ";" : std::string(name).append(": ").append(value));
  }
  append("Expect:");  // a body of this size is not worth a round trip of asking
  return list;
}

// What of a response is of interest, and how much of it is read at most.
struct Answer {
  static constexpr std::size_t mostHeaderBytes = 64UL * 1024;
  static constexpr std::size_t mostBodyBytes = 64UL * 1024;

  std::size_t headerBytes = 0;
  std::size_t bodyBytes = 0;
  std::optional<std::string> retryAfter;
  std::optional<std::string> date;
};

// The value of a header line, when it is one of that name and not too long to make sense.
std::optional<std::string> headerValue(std::string_view line, std::string_view name) {
  constexpr std::size_t longest = 200;
  if (line.size() <= name.size() || line.size() > longest || line[name.size()] != ':') return {};
  if (!curl_strnequal(line.data(), name.data(), name.size())) return {};
  std::string_view value = line.substr(name.size() + 1);
  const std::size_t first = std::min(value.find_first_not_of(" \t"), value.size());
  const std::size_t last = value.find_last_not_of(" \t\r\n");
  if (last == std::string_view::npos || last < first) return std::string();
  return std::string(value.substr(first, last + 1 - first));
}

// Answering less than was offered ends the transfer.
std::size_t takeHeader(char* data, std::size_t size, std::size_t count, void* context) {
  Answer& answer = *static_cast<Answer*>(context);
  const std::string_view line(data, size * count);
  answer.headerBytes += line.size();
  if (answer.headerBytes > Answer::mostHeaderBytes) return 0;
  if (line.starts_with("HTTP/")) answer.retryAfter = answer.date = std::nullopt;
  if (auto value = headerValue(line, "Retry-After")) answer.retryAfter = std::move(value);
  if (auto value = headerValue(line, "Date")) answer.date = std::move(value);
  return line.size();
}

std::size_t discard(char* /*data*/, std::size_t size, std::size_t count, void* context) {
  Answer& answer = *static_cast<Answer*>(context);
  answer.bodyBytes += size * count;
  return answer.bodyBytes > Answer::mostBodyBytes ? 0 : size * count;
}

// The host's child processes are not to inherit the connection.
curl_socket_t openSocket(void* /*context*/, curlsocktype /*purpose*/, curl_sockaddr* address) {
  return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

std::string environmentText(std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (const char* value = platform::environmentVariable(name)) return value;
  }
  return {};
}

// Process-wide and never undone: the library may be the host's too.
void initialiseOnce() {
  static bool done = false;
  const std::scoped_lock lock(libraryStartMutex());
  if (done) return;
  // libcurl would write the keys of its connections to any file that this names, whoever asks.
  const char* keyLog = std::getenv("SSLKEYLOGFILE");  // NOLINT(concurrency-mt-unsafe): as libcurl
  if (keyLog != nullptr && platform::isPrivilegedProcess()) {
    throw std::runtime_error("SSLKEYLOGFILE is set in a privileged process");
  }
  if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
    throw std::runtime_error("libcurl could not be initialised");
  }
  done = true;
}

}  // namespace

bool startHttpLibrary() noexcept {
  try {
    initialiseOnce();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

Proxies Proxies::fromEnvironment() {
  return {environmentText({"http_proxy", "all_proxy", "ALL_PROXY"}),
          environmentText({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}),
          environmentText({"no_proxy", "NO_PROXY"})};
}

struct CurlTransport::Handles {
  CURLM* multi = makeMultiHandle();
  CURL* easy = curl_easy_init();

  Handles() {
    if (multi == nullptr || easy == nullptr) throw std::bad_alloc();
  }
  Handles(const Handles&) = delete;
  Handles& operator=(const Handles&) = delete;
  ~Handles() {
    curl_easy_cleanup(easy);
    curl_multi_cleanup(multi);
  }

  template <class Value>
  void set(CURLoption option, Value value) {
    const CURLcode code = curl_easy_setopt(easy, option, value);
    if (code != CURLE_OK) throw std::runtime_error(curl_easy_strerror(code));
  }

  // What holds for everything that goes to an endpoint.
  void prepare(const std::string& url, const CurlOptions& options) {
    curl_easy_reset(easy);  // keeps the connection
    error.front() = '\0';
    set(CURLOPT_ERRORBUFFER, error.data());
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_HTTP09_ALLOWED, 0L);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_OPENSOCKETFUNCTION, &openSocket);
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (!options.certificateFile.empty()) {
      set(CURLOPT_CAINFO, options.certificateFile.c_str());
      set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
    setLimits(options);
    chooseProxy(url, options.proxies);
  }

  // The environment's proxies are honoured as users expect, but never for this machine itself.
  void chooseProxy(const std::string& url, const Proxies& proxies) {
    const bool direct = isLoopbackHost(platform::urlHost(url).value_or(""));
    const bool secure = url.starts_with("https:") || url.starts_with("HTTPS:");
    set(CURLOPT_PROXY, direct ? "" : (secure ? proxies.https : proxies.http).c_str());
    set(CURLOPT_NOPROXY, proxies.exceptions.c_str());
  }

  void setLimits(const CurlOptions& options) {
    constexpr long leastBytesPerSecond = 1;
    const auto milliseconds = [](const auto& time) {
      return static_cast<long>(time.load().count());
    };
    set(CURLOPT_CONNECTTIMEOUT_MS, milliseconds(options.connectTimeout));
    set(CURLOPT_TIMEOUT_MS, milliseconds(options.requestTimeout));
    // Nothing moves for half of the time: the rest need not be waited for.
    set(CURLOPT_LOW_SPEED_LIMIT, leastBytesPerSecond);
    set(CURLOPT_LOW_SPEED_TIME, std::max(1L, milliseconds(options.requestTimeout) / 2000));
  }

  // Does what was prepared, until it is done or `interrupted`.
  [[nodiscard]] CURLcode perform(const std::atomic<bool>& interrupted,
                                 const std::function<void()>& meanwhile) const {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds pause{1};
    auto next = Clock::now() + pause;
    if (curl_multi_add_handle(multi, easy) != CURLM_OK) return CURLE_FAILED_INIT;
    CURLcode code = CURLE_ABORTED_BY_CALLBACK;
    for (int running = 1; running > 0 && !interrupted;) {
      if (curl_multi_perform(multi, &running) != CURLM_OK) break;
      int left = 0;
      if (const CURLMsg* done = curl_multi_info_read(multi, &left)) {
        code = done->data.result;
      } else if (running > 0) {
        keepLookUpFromChildren(multi);
        curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
      }
      if (running > 0 && meanwhile && Clock::now() >= next) {
        meanwhile();
        next = Clock::now() + pause;
      }
    }
    curl_multi_remove_handle(multi, easy);
    return code;
  }

  // Why it failed. A server's certificate may put words into it.
  [[nodiscard]] std::string problem(CURLcode code) const {
    std::string text = error.front() != '\0' ? error.data() : curl_easy_strerror(code);
    std::ranges::replace_if(
        text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, '?');
    return text;
  }

  std::array<char, CURL_ERROR_SIZE> error{};
};

CurlTransport::CurlTransport(std::shared_ptr<const CurlOptions> options)
    : options_(std::move(options)), handles_((initialiseOnce(), std::make_unique<Handles>())) {}

CurlTransport::~CurlTransport() = default;

void CurlTransport::interrupt() noexcept {
  interrupted_ = true;
  curl_multi_wakeup(handles_->multi);
}

std::string CurlTransport::connect(const std::string& url) {
  Handles& handles = *handles_;
  handles.prepare(url, *options_);
  handles.set(CURLOPT_CONNECT_ONLY, 1L);
  interrupted_ = false;
  const CURLcode code = handles.perform(interrupted_, {});
  return code == CURLE_OK ? std::string() : handles.problem(code);
}

default_core::HttpResponse CurlTransport::post(const default_core::HttpRequest& request) {
  Handles& handles = *handles_;
  const Slist headers = headerList(request);
  Answer answer;
  handles.prepare(request.url, *options_);
  handles.set(CURLOPT_POST, 1L);
  handles.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
  handles.set(CURLOPT_POSTFIELDS, request.body.data());
  handles.set(CURLOPT_HTTPHEADER, headers.get());
  handles.set(CURLOPT_HEADERFUNCTION, &takeHeader);
  handles.set(CURLOPT_HEADERDATA, &answer);
  handles.set(CURLOPT_WRITEFUNCTION, &discard);
  handles.set(CURLOPT_WRITEDATA, &answer);
  interrupted_ = false;
  const CURLcode code = handles.perform(interrupted_, options_->meanwhile);
  // The status is the answer. What becomes of the body after it is of no interest: a broken one
  // must not bring a message back that the endpoint has taken.
  long status = 0;
  curl_easy_getinfo(handles.easy, CURLINFO_RESPONSE_CODE, &status);
  if (status >= 200) {
    return {static_cast<int>(status), {}, std::move(answer.retryAfter), std::move(answer.date)};
  }
  return {0, code == CURLE_OK ? "no final answer" : handles.problem(code), {}, {}};
}

}  // namespace vantamo::core
