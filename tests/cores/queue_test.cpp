#include <sqlite3.h>

#include "cores/default/durable_queue.h"
#include "cores/default/journal_record.h"
#include "tests/kit/host_test.h"

namespace vantamo::test {
namespace {

using core::DurableQueue;
using core::Message;
using core::MessageQueue;
using core::QueuedMessage;
using testing::ElementsAre;
using testing::IsEmpty;

Message message(const std::string& body) {
  return {platform::randomUuid(), "VTMod", body, 1234, 0, 0};
}

std::vector<std::string> deliverAll(MessageQueue& queue) {
  std::vector<std::string> bodies;
  while (const QueuedMessage* front = queue.front()) {
    bodies.push_back(front->body);
    queue.delivered(front->id);
  }
  return bodies;
}

class DurableQueueTest : public HostTest {
 protected:
  [[nodiscard]] std::string folder() const { return (caches() / "NQCore" / "app").string(); }
  [[nodiscard]] std::filesystem::path file(const std::string& name) const {
    return std::filesystem::path(folder()) / "0" / name;
  }
  [[nodiscard]] std::unique_ptr<MessageQueue> open() const {
    return std::make_unique<DurableQueue>(folder());
  }
  // As a process that was killed leaves it: what was appended is in the journal alone.
  void leave(std::initializer_list<const char*> bodies, bool takenIn = false) const {
    const auto queue = open();
    for (const char* body : bodies) queue->append(message(body));
    if (takenIn) static_cast<void>(queue->takeIn());
  }
  [[nodiscard]] std::vector<std::string> found() const {
    const auto queue = open();
    static_cast<void>(queue->takeIn());
    return deliverAll(*queue);
  }
  void changeStore(const char* statement) const {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(file("queue.sqlite").c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, statement, nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_GT(sqlite3_changes(database), 0);
    sqlite3_close(database);
  }
  [[nodiscard]] std::size_t asides() const {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(file(""))) {
      const std::string name = entry.path().filename().string();
      count += name.starts_with("queue.sqlite.aside-") && !name.ends_with("-wal") ? 1 : 0;
    }
    return count;
  }
};

// One suite over both queues.
class QueueTest : public DurableQueueTest, public testing::WithParamInterface<const char*> {
 protected:
  [[nodiscard]] std::unique_ptr<MessageQueue> make() const {
    return std::string_view(GetParam()) == "durable" ? open() : core::makeMemoryQueue();
  }
};

TEST_P(QueueTest, KeepsOrderAndWholeContentUntilDelivered) {
  const auto queue = make();
  EXPECT_EQ(queue->takeIn().messages, 0);
  EXPECT_EQ(queue->front(), nullptr);
  EXPECT_EQ(queue->newestOrdinal(), 0U);
  const std::string odd("a\0\xff'; DROP TABLE messages; --", 30);
  const Message first = message(odd);
  queue->append(first);
  queue->append(message(""));
  EXPECT_EQ(queue->newestOrdinal(), 2U);
  EXPECT_EQ(queue->takeIn().messages, 0);  // no surprise
  const QueuedMessage* front = queue->front();
  ASSERT_NE(front, nullptr);
  EXPECT_EQ(front->id, first.id);
  EXPECT_EQ(front->moduleName, "VTMod");
  EXPECT_EQ(front->accepted, 1234);
  EXPECT_EQ(front->run, queue->run());
  EXPECT_EQ(front->ordinal, 1U);
  EXPECT_THAT(deliverAll(*queue), ElementsAre(odd, ""));
  queue->rest();
  EXPECT_EQ(queue->front(), nullptr);
}

TEST_P(QueueTest, DeadLettersAreBoundedAndComeBackOnWish) {
  const auto queue = make();
  std::vector<std::string> ids;
  for (const char* body : {"1", "2", "3", "4"}) {
    ids.push_back(platform::randomUuid());
    queue->append({ids.back(), "VTMod", body, 1});
  }
  static_cast<void>(queue->takeIn());
  std::size_t dropped = 0;
  for (int i = 0; i < 3; ++i) {
    ASSERT_NE(queue->front(), nullptr);
    dropped += queue->bury(ids.at(static_cast<std::size_t>(i)), 400 + i, "no", 99, {2, 1000});
  }
  EXPECT_EQ(dropped, 1U);
  const auto dead = queue->deadLetters();
  ASSERT_EQ(dead.size(), 2U);
  EXPECT_EQ(dead[0].id, ids[1]);
  EXPECT_EQ(dead[0].status, 401);
  EXPECT_EQ(dead[0].reason, "no");
  EXPECT_EQ(dead[0].died, 99);
  EXPECT_EQ(queue->purge(std::vector{ids[2], ids[0]}).deadLetters, -1);
  const auto revived = queue->revive({});
  EXPECT_EQ(revived.messages, 1);
  EXPECT_EQ(revived.deadLetters, -1);
  EXPECT_THAT(deliverAll(*queue), ElementsAre("4", "2"));
  queue->append(message("5"));
  core::QueueChange change;
  EXPECT_TRUE(queue->erase(change));
  EXPECT_EQ(change.messages, -1);
  EXPECT_EQ(change.bytes, -1);
  EXPECT_EQ(queue->front(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Both, QueueTest, testing::Values("durable", "memory"),
                         [](const auto& test) { return std::string(test.param); });

TEST_F(DurableQueueTest, WhatAKilledProcessHasLeftIsFoundOnceAndInOrder) {
  leave({"1", "2"});
  leave({"3"}, true);
  leave({"4"});
  {
    const auto queue = open();
    EXPECT_EQ(queue->takeIn().messages, 4);
    EXPECT_EQ(queue->front()->body, "1");
    queue->delivered(queue->front()->id);
    static_cast<void>(queue->front());  // marked, and not yet removed when the process ends
    std::filesystem::copy(folder(), scratch() / "killed", std::filesystem::copy_options::recursive);
  }
  std::filesystem::remove_all(folder());
  std::filesystem::copy(scratch() / "killed", folder(), std::filesystem::copy_options::recursive);
  EXPECT_THAT(found(), ElementsAre("2", "3", "4"));
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(DurableQueueTest, DeliveriesOutOfOrderAreRemembered) {
  leave({"1", "2", "3", "4"}, true);
  for (const bool settled : {false, true}) {
    const auto queue = open();
    static_cast<void>(queue->takeIn());
    const std::string last = queue->at(settled ? 1 : 3)->id;
    ASSERT_EQ(queue->at(4), nullptr);
    queue->delivered(last);
    queue->delivered(queue->front()->id);
    static_cast<void>(queue->front());
    if (settled) queue->settle();
    const auto copy = scratch() / (settled ? "settled" : "killed");
    std::filesystem::copy(folder(), copy, std::filesystem::copy_options::recursive);
    DurableQueue next(copy.string());
    static_cast<void>(next.takeIn());
    const std::vector<std::string> left = deliverAll(next);
    if (settled) {
      EXPECT_THAT(left, IsEmpty());
    } else {
      EXPECT_THAT(left, ElementsAre("2", "3"));
    }
  }
}

TEST_F(DurableQueueTest, FoldersOfOtherProcessesAreLeftToThemAndTakenOverAfterwards) {
  auto living = open();
  living->append(message("living"));
  {
    DurableQueue second(folder());
    EXPECT_EQ(second.takeIn().messages, 0);
  }
  living.reset();
  std::filesystem::rename(file(""), std::filesystem::path(folder()) / "7");
  leave({"own"});
  EXPECT_THAT(found(), ElementsAre("own", "living"));
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(folder()) / "7"));
}

TEST_F(DurableQueueTest, LargeMessagesComeThroughWhereverARecordEnds) {
  const auto queue = open();
  for (const std::size_t size : {300'000U, 1'000'000U, 1U, 1'048'576U}) {
    for (int i = 0; i < 8; ++i) queue->append(message(std::string(size, 'x')));
  }
  EXPECT_EQ(queue->takeIn().messages, 0);
  EXPECT_EQ(deliverAll(*queue).size(), 32U);
}

TEST_F(DurableQueueTest, AnInterruptedRepairIsTakenUpAgain) {
  leave({"1", "2"}, true);
  const std::string aside = "queue.sqlite.salvage-0";
  std::filesystem::rename(file("queue.sqlite"), file(aside));  // killed before it was read
  EXPECT_THAT(found(), ElementsAre("1", "2"));
  EXPECT_FALSE(std::filesystem::exists(file(aside)));
  EXPECT_EQ(asides(), 1U);

  leave({"3"}, true);
  std::filesystem::create_hard_link(file("queue.sqlite"), scratch() / "elsewhere");
  std::ofstream(file(aside + "-wal")) << "";  // killed when the log had been renamed
  EXPECT_THAT(found(), ElementsAre("3"));
  std::ofstream(file("queue.sqlite-wal")) << std::string(5000, 'x');
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(DurableQueueTest, PlacesBeyondAllReasonAreGivenAnew) {
  leave({"1", "2"}, true);
  changeStore("UPDATE messages SET sequence = 9223372036854775807 - sequence");
  leave({"3"});
  EXPECT_THAT(found(), testing::UnorderedElementsAre("1", "2", "3"));
  EXPECT_EQ(asides(), 1U);
}

TEST_F(DurableQueueTest, AJournalIsReadAnewWhenItsPlaceCannotBe) {
  {
    const auto queue = open();
    queue->append(message("1"));
    static_cast<void>(queue->takeIn());
    queue->append(message("2"));
  }
  changeStore("UPDATE segments SET imported = -5");
  EXPECT_THAT(found(), ElementsAre("1", "2"));
}

TEST(JournalRecordTest, DamageCostsNoMoreThanTheRecordsItTouches) {
  const auto record = [](const std::string& body, std::uint64_t ordinal) {
    return core::journalRecord(message(body), ordinal);
  };
  const std::string one = record("first", 1);
  const std::string bytes = one + record("second VTR1", 2) + record("third", 3);
  const auto bodies = [](const std::string& text, bool last) {
    std::vector<std::string> found;
    for (const Message& read : core::readJournal(text, 9, last).messages)
      found.push_back(read.body);
    return found;
  };
  EXPECT_THAT(bodies(bytes, true), ElementsAre("first", "second VTR1", "third"));
  EXPECT_THAT(bodies("junk" + bytes, true), ElementsAre("first", "second VTR1", "third"));
  std::string flipped = bytes;
  flipped[one.size() + 40] ^= 1;
  EXPECT_THAT(bodies(flipped, true), ElementsAre("first", "third"));
  for (std::size_t cut = one.size(); cut < one.size() + 20; ++cut) {
    EXPECT_THAT(bodies(bytes.substr(0, cut), true), ElementsAre("first"));
    EXPECT_EQ(core::readJournal(bytes.substr(0, cut), 9, false).next, one.size());
  }
  const auto header = core::readJournalHeader(core::journalHeader(7, 8));
  EXPECT_EQ(header.segment, 7U);
  EXPECT_EQ(header.run, 8U);
  EXPECT_EQ(core::readJournalHeader("short").segment, 0U);
}

}  // namespace
}  // namespace vantamo::test
