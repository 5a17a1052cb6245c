// The default core as C sees it.

#include <atomic>
#include <thread>

#include "tests/kit/host_test.h"
#include "vantamo/default_core.h"
#include "vantamo/vantamo.h"
#include "vantamo/vantamo_c.h"

namespace vantamo::test {
namespace {

using testing::ElementsAre;

struct Context {
  std::atomic<int> released{0};
  std::atomic<int> calls{0};
  std::atomic<int> status{204};
  std::vector<std::string> seen;

  static Context& of(void* context) { return *static_cast<Context*>(context); }
  static void release(void* context) { ++of(context).released; }
};

// Answers with the status that the context holds; below 0 there are worse transports.
void post(void* context, const vantamo_http_request* request, vantamo_http_exchange* exchange) {
  Context& told = Context::of(context);
  ++told.calls;
  told.seen.emplace_back(request->body, request->bodyLength);
  for (std::size_t i = 0; i < request->headerCount; ++i) {
    const vantamo_http_header& header = request->headers[i];
    if (std::string_view(header.name) == "Idempotency-Key") told.seen.emplace_back(header.value);
  }
  if (told.status == -1) return;
  if (told.status == -2) throw 7;
  EXPECT_FALSE(vantamo_default_core_answer(exchange, nullptr));
  std::string error = "offline";
  auto response = VANTAMO_INIT(vantamo_http_response);
  response.status = told.status;
  response.error = error.c_str();
  EXPECT_TRUE(vantamo_default_core_answer(exchange, &response));
  EXPECT_FALSE(vantamo_default_core_answer(nullptr, &response));
}

class CCoreTest : public HostTest {
 protected:
  CCoreTest() {
    writeSettings("VTMod", R"({"PostMessageUrl":"http://127.0.0.1:1/","CaptureAllOfflineTags":1})");
    writeSettings("NQCore", R"({"RetryBaseSeconds":0.01,"RetryCapSeconds":0.05})");
  }
  ~CCoreTest() override { vantamo_shutdown(); }

  bool start() {
    auto options = VANTAMO_INIT(vantamo_default_core_options);
    options.transport = {&post, nullptr, &transport, &Context::release};
    options.wallClock = {[](void* context) -> std::int64_t {
                           ++Context::of(context).calls;
                           return 1'000'000'007;
                         },
                         &clock, &Context::release};
    options.maxQueuedMessages = {true, 2};
    return vantamo_default_core_set_options(&options) && vantamo_startup();
  }
  static bool fire() {
    auto element = VANTAMO_INIT(vantamo_element);
    element.elementId = "e";
    return vantamo_fire_element(&element);
  }
  static vantamo_default_core_stats stats() {
    auto stats = VANTAMO_INIT(vantamo_default_core_stats);
    EXPECT_TRUE(vantamo_default_core_get_stats(&stats));
    return stats;
  }

  Context transport;
  Context clock;
};

TEST_F(CCoreTest, RefusedOptionsAreGivenBack) {
  using Options = vantamo_default_core_options;
  const auto refuses = [&](auto change) {
    Context context;
    auto options = VANTAMO_INIT(Options);
    options.transport = {&post, nullptr, &context, &Context::release};
    options.wallClock = {nullptr, &context, &Context::release};
    change(options);
    EXPECT_FALSE(vantamo_default_core_set_options(&options));
    EXPECT_EQ(context.released, 2);
  };
  refuses([](Options& options) { options.queueFolder = "relative"; });
  refuses([](Options& options) { options.maxQueuedMessages = {true, 0}; });
  refuses([](Options& options) { options.maxQueueBytes = {true, 65535}; });
  refuses([](Options& options) { options.maxDeadLetters = {true, 100001}; });
  refuses([](Options& options) { options.maxConcurrentPosts = {true, 33}; });
  EXPECT_FALSE(vantamo_default_core_set_options(nullptr));
  ASSERT_TRUE(start());
  refuses([](Options&) {});  // the core is in use
  EXPECT_EQ(transport.released + clock.released, 0);
}

TEST_F(CCoreTest, FiguresReportsAndDeadLettersAgree) {
  Context reports;
  vantamo_default_core_set_delivery_callback(
      [](void* context, const vantamo_delivery_report* report) {
        Context& told = Context::of(context);
        told.seen.push_back(std::to_string(report->outcome) + report->moduleName +
                            std::to_string(report->status) + report->reason);
        ++told.calls;
        throw std::runtime_error("a callback must not throw");
      },
      &reports, &Context::release);
  ASSERT_TRUE(start());
  transport.status = 422;
  EXPECT_TRUE(fire());
  EXPECT_TRUE(vantamo_default_core_flush(20'000));
  while (reports.calls == 0) std::this_thread::yield();
  vantamo_default_core_set_delivery_callback(nullptr, nullptr, nullptr);
  while (reports.released == 0) std::this_thread::yield();
  EXPECT_THAT(reports.seen, ElementsAre("2VTMod422status 422"));

  Context letters;
  EXPECT_EQ(vantamo_default_core_dead_letters(nullptr, nullptr), 1U);
  EXPECT_EQ(vantamo_default_core_dead_letters(
                [](void* context, const vantamo_dead_letter* letter) {
                  EXPECT_EQ(letter->size, sizeof(vantamo_dead_letter));
                  EXPECT_EQ(letter->status, 422);
                  EXPECT_STREQ(letter->reason, "status 422");
                  EXPECT_EQ(letter->accepted, 1'000'000'007);
                  EXPECT_EQ(letter->died, 1'000'000'007);
                  EXPECT_STREQ(letter->moduleName, "VTMod");
                  Context::of(context).seen = {{letter->body, letter->bodyLength}, letter->id};
                },
                &letters),
            1U);
  EXPECT_EQ(letters.seen, transport.seen);

  vantamo_default_core_stats figures = stats();
  EXPECT_EQ(figures.accepted, 1U);
  EXPECT_EQ(figures.dead, 1U);
  EXPECT_EQ(figures.deadLetters, 1U);
  EXPECT_EQ(figures.lastStatus, 422);
  EXPECT_STREQ(figures.lastError, "status 422");
  EXPECT_TRUE(figures.durable);
  vantamo_free(figures.lastError);

  // An older caller's struct is filled as far as it goes.
  figures = {};
  figures.size = offsetof(vantamo_default_core_stats, delivered);
  figures.delivered = 77;
  EXPECT_TRUE(vantamo_default_core_get_stats(&figures));
  EXPECT_EQ(figures.size, offsetof(vantamo_default_core_stats, delivered));
  EXPECT_EQ(figures.accepted, 1U);
  EXPECT_EQ(figures.delivered, 77U);
  EXPECT_FALSE(vantamo_default_core_get_stats(nullptr));

  // Only a list that is not there means all.
  const char* const another[] = {"another", nullptr};
  const vantamo_list others = {another, 2};
  const vantamo_list none = {nullptr, 3};
  for (const vantamo_list* ids : {&others, &none}) {
    EXPECT_EQ(vantamo_default_core_purge_dead_letters(ids), 0U);
  }
  const char* const own[] = {letters.seen.at(1).c_str()};
  const vantamo_list ids = {own, 1};
  EXPECT_EQ(vantamo_default_core_replay_dead_letters(&ids), 1U);
  EXPECT_TRUE(vantamo_default_core_flush(20'000));
  EXPECT_EQ(vantamo_default_core_purge_dead_letters(nullptr), 1U);
  EXPECT_GT(clock.calls, 0);
}

TEST_F(CCoreTest, ATransportThatFailsHasNoAnswer) {
  ASSERT_TRUE(start());
  const auto lastError = [] {
    const vantamo_default_core_stats figures = stats();
    std::string error = Text(figures.lastError).copy().value_or("");
    vantamo_free(figures.lastError);
    return error;
  };
  const auto fails = [&](int status, const char* expected) {
    transport.status = status;
    while (lastError() != expected) EXPECT_FALSE(vantamo_default_core_flush(50));
  };
  transport.status = 0;
  EXPECT_TRUE(fire());
  fails(0, "offline");
  fails(-1, "the transport has told no answer");
  fails(-2, "the transport failed");
  EXPECT_TRUE(fire());
  EXPECT_FALSE(fire());  // maxQueuedMessages
  EXPECT_TRUE(vantamo_default_core_erase_all());
  EXPECT_EQ(vantamo::default_core::stats().queuedMessages, 0U);
  transport.status = 204;
  EXPECT_TRUE(fire());
  EXPECT_TRUE(vantamo_default_core_flush(20'000));
}

}  // namespace
}  // namespace vantamo::test
