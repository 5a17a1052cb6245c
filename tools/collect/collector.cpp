#include "tools/collect/collector.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <stdexcept>

#include "platform/random.h"
#include "tools/collect/request.h"

namespace vantamo::tools::collect {
namespace {

using std::chrono::milliseconds;

constexpr std::chrono::seconds beatInterval(10);
constexpr std::chrono::seconds drainLimit(2);

// Bodies that are being received, of all connections together.
constexpr std::size_t mostUploading = std::size_t{64} << 20U;
// A body past the limit is read on up to here, so that its sender gets to read the answer.
constexpr std::size_t mostDiscarded = std::size_t{16} << 20U;

std::string nameOfMachine() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

double randomPercent() { return static_cast<double>(platform::random32()) / 4294967296.0 * 100; }

CollectorOptions complete(CollectorOptions options) {
  if (!options.draw) options.draw = &randomPercent;
  return options;
}

}  // namespace

Collector::Collector(CollectorOptions options)
    : options_(complete(std::move(options))),
      run_(platform::randomUuid()),
      machineName_(nameOfMachine()),
      faults_(options_.faults),
      listener_(listenOn(options_.address, options_.port)),
      wakeUp_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      nextBeat_(Clock::now() + beatInterval) {
  if (wakeUp_.number() < 0) throw std::runtime_error("no descriptor is left");
  startDaemon();
}

// The server must not end while a connection is taken off its loop.
Collector::~Collector() {
  stopping_ = true;
  wakePages();
  for (const auto& [time, connection] : held_) ::MHD_resume_connection(connection);
  held_.clear();
  ::MHD_run(daemon_.get());
  daemon_.reset();
}

void Collector::startDaemon() {
  constexpr unsigned otherDescriptors = 64;
  constexpr unsigned mostConnections = 8192;
  constexpr unsigned idleSeconds = 30;
  const unsigned descriptors = raiseDescriptorLimit();
  const unsigned connections =
      std::min(mostConnections, std::max(descriptors, 2 * otherDescriptors) - otherDescriptors);
  daemon_.reset(::MHD_start_daemon(
      MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr, &Collector::handle, this,
      MHD_OPTION_LISTEN_SOCKET, listener_.socket.number(), MHD_OPTION_CONNECTION_LIMIT, connections,
      MHD_OPTION_CONNECTION_TIMEOUT, idleSeconds, MHD_OPTION_NOTIFY_COMPLETED,
      &Collector::completed, this, MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_END));
  if (daemon_ == nullptr) throw std::runtime_error("the server does not start");
  listener_.socket.release();  // the server closes it
}

std::string Collector::url() const {
  const std::string host = listener_.onAll ? "127.0.0.1" : listener_.host;
  return "http://" + host + ":" + std::to_string(listener_.port) + "/";
}

void Collector::stop() noexcept {
  const std::uint64_t one = 1;
  // It fails only when the counter is full, and then it wakes already.
  [[maybe_unused]] const ssize_t written = ::write(wakeUp_.number(), &one, sizeof one);
}

void Collector::run(const std::function<bool()>& isOver,
                    std::optional<Clock::time_point> deadline) {
  const auto isStopped = [this] {
    std::uint64_t count = 0;
    return ::read(wakeUp_.number(), &count, sizeof count) > 0;
  };
  const Clock::time_point never = Clock::time_point::max();
  bool wasStopped = false;
  while (!isOver() && !wasStopped && Clock::now() < deadline.value_or(never)) {
    serveOnce(deadline.value_or(never));
    wasStopped = isStopped();
  }
  // Whoever has posted is answered, so that nobody posts the same again. One who stops it does not
  // wait for answers that are held back: they go out at the end.
  const Clock::time_point end =
      Clock::now() + drainLimit + (wasStopped ? milliseconds(0) : faults_.slow);
  while (posting_ > 0 && !isStopped() && Clock::now() < end) serveOnce(end);
}

void Collector::serveOnce(Clock::time_point until) {
  Clock::time_point next = until;
  if (!held_.empty()) next = std::min(next, held_.begin()->first);
  if (!pages_.empty()) next = std::min(next, nextBeat_);
  MHD_UNSIGNED_LONG_LONG ownWait = 0;
  std::int64_t wait = -1;
  if (next != Clock::time_point::max()) {
    const auto left = std::chrono::ceil<milliseconds>(next - Clock::now());
    wait = std::max<std::int64_t>(left.count(), 0);
  }
  if (::MHD_get_timeout(daemon_.get(), &ownWait) == MHD_YES) {
    const auto own = static_cast<std::int64_t>(std::min<MHD_UNSIGNED_LONG_LONG>(ownWait, 60'000));
    wait = wait < 0 ? own : std::min(wait, own);
  }
  const auto* loop = ::MHD_get_daemon_info(daemon_.get(), MHD_DAEMON_INFO_EPOLL_FD);
  std::array<pollfd, 2> ready = {{{loop->epoll_fd, POLLIN, 0}, {wakeUp_.number(), POLLIN, 0}}};
  ::poll(ready.data(), ready.size(), static_cast<int>(std::min<std::int64_t>(wait, 60'000)));
  resumeDue(Clock::now());
  ::MHD_run(daemon_.get());
}

void Collector::resumeDue(Clock::time_point now) {
  while (!held_.empty() && held_.begin()->first <= now) {
    MHD_Connection* connection = held_.begin()->second;
    held_.erase(held_.begin());
    ::MHD_resume_connection(connection);
  }
  if (now < nextBeat_) return;
  nextBeat_ = now + beatInterval;
  for (EventProducer* page : pages_) page->beat();
}

void Collector::wakePages() {
  for (EventProducer* page : pages_) page->wake();
}

MHD_Result Collector::handle(void* self, MHD_Connection* connection, const char* path,
                             const char* method, const char* /*version*/, const char* data,
                             std::size_t* size, void** request) {
  auto& collector = *static_cast<Collector*>(self);
  try {
    if (*request == nullptr) {
      *request = std::make_unique<Request>(collector, connection, method, path).release();
      return MHD_YES;
    }
    return collector.proceed(*static_cast<Request*>(*request), data, size);
  } catch (const std::exception&) {
    // Out of memory, or what a header cannot hold: this connection ends, the others go on.
    return MHD_NO;
  }
}

void Collector::completed(void* /*self*/, MHD_Connection* /*connection*/, void** request,
                          MHD_RequestTerminationCode /*code*/) {
  const std::unique_ptr<Request> finished(static_cast<Request*>(*request));
  *request = nullptr;
}

MHD_Result Collector::proceed(Request& request, const char* data, std::size_t* size) {
  if (*size == 0) return answer(request);
  takeIn(request, {data, *size});
  *size = 0;
  return request.received > mostDiscarded ? MHD_NO : MHD_YES;
}

void Collector::takeIn(Request& request, std::string_view data) {
  request.received += data.size();
  request.tooLarge = request.tooLarge || request.received > mostBodyBytes;
  if (request.tooLarge) {
    uploading_ -= request.body.size();
    request.body = std::string();
    return;
  }
  if (uploading_ + data.size() > mostUploading) throw std::runtime_error("too much at a time");
  uploading_ += data.size();
  request.body += data;
}

}  // namespace vantamo::tools::collect
