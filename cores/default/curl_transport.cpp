#include "cores/default/curl_transport.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "cores/default/curl_lane.h"
#include "cores/default/curl_wakeup.h"
#include "cores/default/fork_guard.h"
#include "platform/environment.h"

namespace vantamo::core {
namespace {

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
  static constexpr long mostConnections = 32;

  Handles() {
    if (multi == nullptr) throw std::bad_alloc();
    // Else as many as requests are under way, and those of a moment with few would close the rest.
    curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, mostConnections);
  }
  Handles(const Handles&) = delete;
  Handles& operator=(const Handles&) = delete;
  ~Handles() {
    lanes.clear();
    curl_multi_cleanup(multi);
  }

  [[nodiscard]] CurlLane& freeLane(const CurlOptions& options) {
    const auto free = std::ranges::find_if(lanes, [](const auto& lane) { return !lane->underWay; });
    if (free != lanes.end()) return **free;
    return *lanes.emplace_back(std::make_unique<CurlLane>(options));
  }

  void begin(CurlLane& lane) const {
    if (curl_multi_add_handle(multi, lane.handle()) != CURLM_OK) {
      throw std::runtime_error("the request could not be begun");
    }
    lane.underWay = true;
  }

  void end(CurlLane& lane) const {
    curl_multi_remove_handle(multi, lane.handle());
    lane.underWay = false;
  }

  // Goes on with what is under way; the lanes that are done with it are ended, and `each` is called
  // for them. Whether there was one.
  template <class Each>
  bool goOn(Each each) {
    int running = 0;
    if (curl_multi_perform(multi, &running) != CURLM_OK) {
      for (const auto& lane : lanes) finish(*lane, CURLE_FAILED_INIT, each);
      return true;
    }
    bool any = false;
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi, &left)) {
      const CURLcode code = message->data.result;
      finish(CurlLane::of(message->easy_handle), code, each);
      any = true;
    }
    return any;
  }

  template <class Each>
  void finish(CurlLane& lane, CURLcode code, Each each) {
    if (!lane.underWay) return;
    end(lane);
    each(lane, code);
  }

  // Until there is something to go on with, or for a second.
  void wait() {
    const auto looksUp = [](const auto& lane) { return lane->underWay && lane->isLookingUp(); };
    if (std::ranges::any_of(lanes, looksUp)) keepLookUpFromChildren(multi);
    curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
  }

  CURLM* const multi = makeMultiHandle();
  std::vector<std::unique_ptr<CurlLane>> lanes;
};

// Leaves nothing under way, whatever the source throws.
struct CurlTransport::AllEnded {
  ~AllEnded() {
    for (const auto& lane : handles.lanes) {
      if (lane->underWay) handles.end(*lane);
    }
  }

  Handles& handles;
};

CurlTransport::CurlTransport(std::shared_ptr<const CurlOptions> options)
    : options_(std::move(options)), handles_((initialiseOnce(), std::make_unique<Handles>())) {}

CurlTransport::~CurlTransport() = default;

void CurlTransport::interrupt() noexcept {
  interrupted_ = true;
  curl_multi_wakeup(handles_->multi);
}

std::string CurlTransport::connect(const std::string& url) {
  interrupted_ = false;
  CurlLane& lane = handles_->freeLane(*options_);
  lane.prepareConnection(url);
  handles_->begin(lane);
  std::string problem = "interrupted";
  const auto conclude = [&problem](CurlLane& ended, CURLcode code) {
    problem = code == CURLE_OK ? std::string() : ended.problem(code);
  };
  while (!interrupted_ && !handles_->goOn(conclude)) handles_->wait();
  if (lane.underWay) handles_->end(lane);
  return problem;
}

void CurlTransport::exchange(RequestSource& source, std::size_t most) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::seconds pause{1};
  Handles& handles = *handles_;
  const AllEnded allEnded{handles};
  interrupted_ = false;
  auto meanwhileAt = Clock::now() + pause;
  std::size_t underWay = 0;
  const auto conclude = [&](CurlLane& lane, CURLcode code) {
    --underWay;
    source.answered(lane.number(), lane.response(code));
  };
  while (!interrupted_) {
    while (underWay < most && begin(source)) ++underWay;
    if (underWay == 0) return;
    if (handles.goOn(conclude)) continue;
    handles.wait();
    if (options_->meanwhile && Clock::now() >= meanwhileAt) {
      options_->meanwhile();
      meanwhileAt = Clock::now() + pause;
    }
  }
  for (const auto& lane : handles.lanes) {
    handles.finish(*lane, CURLE_ABORTED_BY_CALLBACK, conclude);
  }
}

// Begins the next request, if there is one; one that cannot be begun is answered at once.
bool CurlTransport::begin(RequestSource& source) {
  while (auto request = source.next()) {
    const std::size_t number = request->number;
    try {
      CurlLane& lane = handles_->freeLane(*options_);
      lane.preparePost(*std::move(request));
      handles_->begin(lane);
      return true;
    } catch (const std::exception& exception) {
      source.answered(number, {0, exception.what(), {}, {}});
    }
  }
  return false;
}

default_core::HttpResponse CurlTransport::post(const default_core::HttpRequest& request) {
  class One final : public RequestSource {
   public:
    explicit One(const default_core::HttpRequest& only) : request_(&only) {}
    std::optional<Request> next() override {
      const auto* only = std::exchange(request_, nullptr);
      return only == nullptr ? std::nullopt : std::optional(Request{0, *only});
    }
    void answered(std::size_t /*number*/, default_core::HttpResponse answer) override {
      response = std::move(answer);
    }

    default_core::HttpResponse response;

   private:
    const default_core::HttpRequest* request_;
  };
  One source(request);
  exchange(source, 1);
  return std::move(source.response);
}

}  // namespace vantamo::core
