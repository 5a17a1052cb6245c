// What an event may cost that can be counted exactly: blocks of memory asked for on the host's
// thread, and connections. Times are for the benchmarks.

#include <atomic>
#include <cstdlib>
#include <new>
#include <set>

#include "tests/kit/host_test.h"
#include "tools/local_endpoint.h"
#include "vantamo/default_core.h"
#include "vantamo/vantamo.h"

// A sanitizer has the allocator for itself.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VANTAMO_COUNTS_ALLOCATIONS 0
#else
#define VANTAMO_COUNTS_ALLOCATIONS 1
#endif

namespace {

constinit thread_local std::size_t allocations = 0;

}  // namespace

#if VANTAMO_COUNTS_ALLOCATIONS
void* operator new(std::size_t size) {
  ++allocations;
  void* block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t /*size*/) noexcept { std::free(block); }
#endif

namespace vantamo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using tools::LocalEndpoint;

class CostTest : public HostTest {
 protected:
  CostTest() { setenv("VANTAMO_DEBUG", "0", 1); }
  ~CostTest() override { Vantamo::shutdown(); }

  void start(const LocalEndpoint& endpoint) {
    writeSettings("VTMod", endpoint.settings());
    ASSERT_TRUE(Vantamo::startup());
  }
};

TEST_F(CostTest, AnEventAsksForFewBlocksOfMemory) {
  if (VANTAMO_COUNTS_ALLOCATIONS == 0) GTEST_SKIP() << "a sanitizer has the allocator";
  const LocalEndpoint endpoint;
  start(endpoint);
  const std::string longText(200, 'x');
  const std::vector<std::string> fifty(50, longText);
  const auto fire = [&](const TextList& attributes) {
    return Vantamo::fireProductview({.pageId = longText,
                                     .productId = "sku-1",
                                     .productName = longText,
                                     .category = "shoes",
                                     .attributes = attributes});
  };
  EXPECT_TRUE(fire({"spring"}));  // what is made once
  for (int i = 0; i < 100; ++i) {
    const std::size_t before = allocations;
    fire({"spring"});
    EXPECT_LE(allocations - before, 8U);
  }
  // Fifty more values make the block grow, and nothing else.
  const std::size_t before = allocations;
  fire(fifty);
  EXPECT_LE(allocations - before, 14U);
}

TEST_F(CostTest, ConnectionsAreAsManyAsRequestsAtATime) {
  for (const std::size_t most : {1U, 4U}) {
    std::atomic<int> underWay{0};
    std::atomic<int> highest{0};
    LocalEndpoint endpoint([&](std::size_t) {
      const int now = ++underWay;
      for (int seen = highest; now > seen && !highest.compare_exchange_weak(seen, now);) continue;
      std::this_thread::sleep_for(milliseconds(5));
      --underWay;
      return 204;
    });
    endpoint.setRequestsPerConnection(1000);
    writeSettings("NQCore", R"({"MaxConcurrentPosts":)" + std::to_string(most) + "}");
    start(endpoint);
    for (int i = 0; i < 60; ++i) Vantamo::fireElement({.elementId = std::to_string(i)});
    EXPECT_TRUE(default_core::flush(seconds(20)));
    std::set<std::string> ports;
    std::set<std::string> ids;
    const auto received = endpoint.wait(60);
    for (const auto& request : received) {
      ports.insert(request.header("REMOTE_PORT"));
      ids.insert(request.key("eid"));
    }
    EXPECT_EQ(ids.size(), 60U);
    EXPECT_EQ(received.size(), 60U);
    EXPECT_LE(ports.size(), most);
    EXPECT_LE(highest, static_cast<int>(most));
    EXPECT_GE(highest, most > 1 ? 2 : 1);
    Vantamo::shutdown();
  }
}

}  // namespace
}  // namespace vantamo::test
