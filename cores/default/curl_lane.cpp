#include "cores/default/curl_lane.h"

#include <sys/socket.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "cores/default/network_state.h"
#include "platform/url_host.h"

namespace vantamo::core {
namespace {

using std::chrono::milliseconds;

// How much of an answer is read at most.
constexpr std::size_t mostHeaderBytes = 64UL * 1024;
constexpr std::size_t mostBodyBytes = 64UL * 1024;

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

}  // namespace

void HeaderLines::set(const default_core::HttpRequest& request) {
  std::size_t count = 0;
  const auto add = [&](std::string_view name, std::string_view separator, std::string_view value) {
    if (count == lines_.size()) lines_.emplace_back();
    lines_[count++].assign(name).append(separator).append(value);
  };
  for (const auto& [name, value] : request.headers) {
    add(name, value.empty() ? ";" : ": ", value);
  }
  add("Expect", ":", "");  // a body of this size is not worth a round trip of asking
  lines_.resize(count);
  list_.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    list_[i] = {lines_[i].data(), i + 1 < count ? &list_[i + 1] : nullptr};
  }
}

CurlLane::CurlLane(const CurlOptions& options) : options_(options), easy_(curl_easy_init()) {
  if (easy_ == nullptr) throw std::bad_alloc();
}

CurlLane::~CurlLane() { curl_easy_cleanup(easy_); }

CurlLane& CurlLane::of(CURL* handle) {
  void* lane = nullptr;
  curl_easy_getinfo(handle, CURLINFO_PRIVATE, &lane);
  return *static_cast<CurlLane*>(lane);
}

template <class Value>
void CurlLane::set(CURLoption option, Value value) {
  const CURLcode code = curl_easy_setopt(easy_, option, value);
  if (code != CURLE_OK) throw std::runtime_error(curl_easy_strerror(code));
}

void CurlLane::prepare(const std::string& url) {
  error_.front() = '\0';
  lookingUp_ = false;
  const milliseconds connectTimeout = options_.connectTimeout;
  const milliseconds requestTimeout = options_.requestTimeout;
  if (target_ && target_->url == url && target_->connectTimeout == connectTimeout &&
      target_->requestTimeout == requestTimeout) {
    return;
  }
  target_.reset();
  curl_easy_reset(easy_);  // keeps the connection
  const Target target{url, connectTimeout, requestTimeout};
  setAll(target);
  target_ = target;
}

// What holds for everything that goes to an endpoint.
void CurlLane::setAll(const Target& target) {
  set(CURLOPT_PRIVATE, static_cast<void*>(this));
  set(CURLOPT_ERRORBUFFER, error_.data());
  set(CURLOPT_URL, target.url.c_str());
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_FOLLOWLOCATION, 0L);
  set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  set(CURLOPT_HTTP09_ALLOWED, 0L);
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_QUICK_EXIT, 1L);
  set(CURLOPT_RESOLVER_START_FUNCTION, &noteLookUp);
  set(CURLOPT_RESOLVER_START_DATA, static_cast<void*>(this));
  set(CURLOPT_OPENSOCKETFUNCTION, &openSocket);
  set(CURLOPT_OPENSOCKETDATA, static_cast<void*>(this));
  set(CURLOPT_SSL_VERIFYPEER, 1L);
  set(CURLOPT_SSL_VERIFYHOST, 2L);
  if (!options_.certificateFile.empty()) {
    set(CURLOPT_CAINFO, options_.certificateFile.c_str());
    set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }
  set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(target.connectTimeout.count()));
  set(CURLOPT_TIMEOUT_MS, static_cast<long>(target.requestTimeout.count()));
  // Nothing moves for half of the time: the rest need not be waited for.
  set(CURLOPT_LOW_SPEED_LIMIT, 1L);
  set(CURLOPT_LOW_SPEED_TIME,
      std::max(1L, static_cast<long>(target.requestTimeout.count()) / 2000));
  // The environment's proxies are honoured as users expect, but never for this machine itself.
  const Proxies& proxies = options_.proxies;
  const bool direct = isLoopbackHost(platform::urlHost(target.url).value_or(""));
  const bool secure = target.url.starts_with("https:") || target.url.starts_with("HTTPS:");
  set(CURLOPT_PROXY, direct ? "" : (secure ? proxies.https : proxies.http).c_str());
  set(CURLOPT_NOPROXY, proxies.exceptions.c_str());
}

void CurlLane::preparePost(RequestSource::Request request) {
  request_ = std::move(request);
  answer_ = {};
  const default_core::HttpRequest& content = request_.content;
  prepare(content.url);
  headers_.set(content);
  set(CURLOPT_POST, 1L);
  set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(content.body.size()));
  set(CURLOPT_POSTFIELDS, content.body.data());
  set(CURLOPT_HTTPHEADER, headers_.list());
  set(CURLOPT_HEADERFUNCTION, &takeHeader);
  set(CURLOPT_HEADERDATA, &answer_);
  set(CURLOPT_WRITEFUNCTION, &discard);
  set(CURLOPT_WRITEDATA, &answer_);
}

void CurlLane::prepareConnection(const std::string& url) {
  prepare(url);
  set(CURLOPT_CONNECT_ONLY, 1L);
  target_.reset();
}

// The status is the answer. What becomes of the body after it is of no interest: a broken one must
// not bring a message back that the endpoint has taken.
default_core::HttpResponse CurlLane::response(CURLcode code) {
  request_.content.body = {};
  long status = 0;
  curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
  if (status >= 200) {
    return {static_cast<int>(status), {}, std::move(answer_.retryAfter), std::move(answer_.date)};
  }
  return {0, code == CURLE_OK ? "no final answer" : problem(code), {}, {}};
}

// A server's certificate may put words into it.
std::string CurlLane::problem(CURLcode code) const {
  std::string text = error_.front() != '\0' ? error_.data() : curl_easy_strerror(code);
  std::ranges::replace_if(
      text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, '?');
  return text;
}

// Answering less than was offered ends the transfer.
std::size_t CurlLane::takeHeader(char* data, std::size_t size, std::size_t count, void* answer) {
  Answer& taken = *static_cast<Answer*>(answer);
  const std::string_view line(data, size * count);
  taken.headerBytes += line.size();
  if (taken.headerBytes > mostHeaderBytes) return 0;
  if (line.starts_with("HTTP/")) taken.retryAfter = taken.date = std::nullopt;
  if (auto value = headerValue(line, "Retry-After")) taken.retryAfter = std::move(value);
  if (auto value = headerValue(line, "Date")) taken.date = std::move(value);
  return line.size();
}

std::size_t CurlLane::discard(char* /*data*/, std::size_t size, std::size_t count, void* answer) {
  Answer& taken = *static_cast<Answer*>(answer);
  taken.bodyBytes += size * count;
  return taken.bodyBytes > mostBodyBytes ? 0 : size * count;
}

int CurlLane::noteLookUp(void* /*resolver*/, void* /*reserved*/, void* lane) {
  static_cast<CurlLane*>(lane)->lookingUp_ = true;
  return 0;
}

// The host's child processes are not to inherit the connection.
curl_socket_t CurlLane::openSocket(void* lane, curlsocktype /*purpose*/, curl_sockaddr* address) {
  static_cast<CurlLane*>(lane)->lookingUp_ = false;
  return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

}  // namespace vantamo::core
