#include <sys/stat.h>

#include "cores/default/message_queue.h"
#include "tests/kit/host_test.h"

namespace vantamo::test {
namespace {

using core::MessageQueue;

// One suite over both queues.
class QueueTest : public HostTest, public testing::WithParamInterface<const char*> {
 protected:
  [[nodiscard]] std::string folder() const { return (caches() / "NQCore" / "app").string(); }
  [[nodiscard]] std::unique_ptr<MessageQueue> open() const {
    return std::string_view(GetParam()) == "sqlite" ? core::openSqliteQueue(folder())
                                                    : core::makeMemoryQueue();
  }
};

TEST_P(QueueTest, KeepsOrderAndWholeContent) {
  const auto queue = open();
  EXPECT_FALSE(queue->front());
  EXPECT_EQ(queue->size(), 0U);
  EXPECT_EQ(queue->newestSequence(), 0);
  const std::string odd("a\0\xff'; DROP TABLE messages; --", 30);
  queue->append("id-1", "VTMod", odd);
  queue->append("id-2", "VTMod", "");
  EXPECT_EQ(queue->size(), 2U);
  const auto first = queue->front();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->id, "id-1");
  EXPECT_EQ(first->moduleName, "VTMod");
  EXPECT_EQ(first->body, odd);
  queue->remove(first->sequence);
  queue->remove(first->sequence);
  const auto second = queue->front();
  EXPECT_EQ(second->id, "id-2");
  EXPECT_EQ(second->body, "");
  EXPECT_GT(second->sequence, first->sequence);
  EXPECT_EQ(queue->newestSequence(), second->sequence);
  queue->remove(second->sequence);
  queue->append("id-3", "VTMod", "");
  EXPECT_GT(queue->newestSequence(), second->sequence);  // never used again
}

INSTANTIATE_TEST_SUITE_P(Both, QueueTest, testing::Values("sqlite", "memory"),
                         [](const auto& test) { return std::string(test.param); });

TEST_F(HostTest, QueueFileSurvivesItsProcessAndIsPrivate) {
  const std::string folder = (caches() / "NQCore" / "app").string();
  const auto oldMask = umask(0);
  const auto first = core::openSqliteQueue(folder);
  first->append("id", "VTMod", "body");
  umask(oldMask);
  const auto second = core::openSqliteQueue(folder);  // as after a kill: the first is still open
  ASSERT_TRUE(second->front());
  EXPECT_EQ(second->front()->body, "body");
  struct stat info {};
  ASSERT_EQ(stat(folder.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777U, 0700U);
  for (const auto& file : std::filesystem::directory_iterator(folder)) {
    ASSERT_EQ(stat(file.path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U) << file.path();
  }
}

TEST_F(HostTest, UnusableQueueFilesAreRefused) {
  const auto open = [](const std::string& folder) { return core::openSqliteQueue(folder); };
  EXPECT_THROW(open("/proc/nowhere"), std::exception);
  const auto folder = scratch() / "broken";
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "queue.sqlite") << std::string(5000, 'x');
  EXPECT_THROW(open(folder.string()), std::exception);
  std::filesystem::remove(folder / "queue.sqlite");
  std::filesystem::create_symlink(scratch() / "elsewhere", folder / "queue.sqlite");
  EXPECT_THROW(open(folder.string()), std::exception);
  EXPECT_FALSE(std::filesystem::exists(scratch() / "elsewhere"));
}

}  // namespace
}  // namespace vantamo::test
