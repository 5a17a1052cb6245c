#include "cores/default/curl_transport.h"

#include <curl/curl.h>
#include <sys/socket.h>

#include <mutex>
#include <stdexcept>

#include "cores/default/network_state.h"
#include "platform/environment.h"
#include "platform/url_host.h"

namespace vantamo::core {
namespace {

struct SlistDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using Slist = std::unique_ptr<curl_slist, SlistDeleter>;

Slist headerList(const HttpRequest& request) {
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

std::size_t discard(char* /*data*/, std::size_t size, std::size_t count, void* /*context*/) {
  return size * count;
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
  static std::once_flag once;
  std::call_once(once, [] {
    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
      throw std::runtime_error("libcurl could not be initialised");
    }
  });
}

}  // namespace

struct CurlTransport::Handles {
  CURLM* multi = curl_multi_init();
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

  // The environment's proxies are honoured as users expect, but never for this machine itself. They
  // were read when the transport was made, on the host's thread: reading the environment on another
  // one would race with a host that changes it.
  void chooseProxy(const std::string& url) {
    const bool direct = isLoopbackHost(platform::urlHost(url).value_or(""));
    const bool secure = url.starts_with("https:") || url.starts_with("HTTPS:");
    set(CURLOPT_PROXY, direct ? "" : (secure ? httpsProxy : httpProxy).c_str());
    set(CURLOPT_NOPROXY, noProxy.c_str());
  }

  const std::string httpProxy = environmentText({"http_proxy", "all_proxy", "ALL_PROXY"});
  const std::string httpsProxy =
      environmentText({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"});
  const std::string noProxy = environmentText({"no_proxy", "NO_PROXY"});
};

CurlTransport::CurlTransport() {
  initialiseOnce();
  handles_ = std::make_unique<Handles>();
}

CurlTransport::~CurlTransport() = default;

void CurlTransport::setTimeouts(std::chrono::milliseconds connect,
                                std::chrono::milliseconds total) {
  connectMilliseconds_ = static_cast<long>(connect.count());
  totalMilliseconds_ = static_cast<long>(total.count());
}

void CurlTransport::interrupt() noexcept {
  interrupted_ = true;
  curl_multi_wakeup(handles_->multi);
}

HttpResult CurlTransport::post(const HttpRequest& request) {
  Handles& handles = *handles_;
  const Slist headers = headerList(request);
  curl_easy_reset(handles.easy);  // keeps the connection
  handles.set(CURLOPT_URL, request.url.c_str());
  handles.set(CURLOPT_PROTOCOLS_STR, "http,https");
  handles.set(CURLOPT_FOLLOWLOCATION, 0L);
  handles.set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  handles.set(CURLOPT_NOSIGNAL, 1L);
  handles.set(CURLOPT_QUICK_EXIT, 1L);
  handles.set(CURLOPT_CONNECTTIMEOUT_MS, connectMilliseconds_.load());
  handles.set(CURLOPT_TIMEOUT_MS, totalMilliseconds_.load());
  handles.set(CURLOPT_POST, 1L);
  handles.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
  handles.set(CURLOPT_POSTFIELDS, request.body.data());
  handles.set(CURLOPT_HTTPHEADER, headers.get());
  handles.set(CURLOPT_WRITEFUNCTION, &discard);
  handles.set(CURLOPT_OPENSOCKETFUNCTION, &openSocket);
  handles.chooseProxy(request.url);

  if (curl_multi_add_handle(handles.multi, handles.easy) != CURLM_OK) {
    return {0, "the request could not be begun"};
  }
  CURLcode code = CURLE_ABORTED_BY_CALLBACK;
  for (int running = 1; running > 0 && !interrupted_;) {
    if (curl_multi_perform(handles.multi, &running) != CURLM_OK) break;
    int left = 0;
    if (const CURLMsg* done = curl_multi_info_read(handles.multi, &left)) {
      code = done->data.result;
    } else if (running > 0) {
      curl_multi_poll(handles.multi, nullptr, 0, 1000, nullptr);
    }
  }
  curl_multi_remove_handle(handles.multi, handles.easy);
  // The status is the answer. What becomes of the body after it is of no interest: a broken one
  // must not bring a message back that the endpoint has taken.
  long status = 0;
  curl_easy_getinfo(handles.easy, CURLINFO_RESPONSE_CODE, &status);
  if (status >= 200) return {static_cast<int>(status), {}};
  return {0, code == CURLE_OK ? "no final answer" : curl_easy_strerror(code)};
}

}  // namespace vantamo::core
