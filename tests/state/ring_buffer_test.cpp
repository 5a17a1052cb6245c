#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "state/vt_tags_ring_buffer.h"

namespace vantamo::test {
namespace {

VTTagsRingBuffer::Tag tag(int number) {
  return std::make_shared<const state::StoredTag>(
      state::StoredTag{state::StoredTag::Form::queryString, std::to_string(number)});
}

std::vector<int> held(const VTTagsRingBuffer& buffer) {
  std::vector<int> numbers;
  for (std::size_t i = 0; i < buffer.count(); ++i) {
    numbers.push_back(std::stoi(buffer.objectAtIndex(i)->text));
  }
  return numbers;
}

TEST(RingBufferTest, OverflowDropsOneEntryPerAdd) {
  // Whether the oldest is dropped, the capacity from the eleventh add on, the number of adds.
  const std::vector<std::tuple<bool, std::size_t, int, std::vector<int>>> cases = {
      {true, 10, 11, {2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
      {false, 10, 12, {1, 2, 3, 4, 5, 6, 7, 8, 9, 12}},
      {true, 3, 11, {2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
      {true, 20, 11, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}}};
  for (const auto& [dropsOldest, capacity, added, left] : cases) {
    VTTagsRingBuffer buffer;
    buffer.setRemoveFirstOnOverflow(dropsOldest);
    for (int i = 1; i <= added; ++i) {
      if (i == 11) buffer.setMaxTagsCount(capacity);
      buffer.addObject(tag(i));
    }
    EXPECT_EQ(held(buffer), left);
  }
}

TEST(RingBufferTest, BadIndexesAndAddsAreHarmless) {
  VTTagsRingBuffer buffer;
  buffer.setRingBuffer({tag(1), tag(2), tag(3)});
  EXPECT_EQ(buffer.objectAtIndex(3), nullptr);
  buffer.removeObjectAtIndex(3);
  buffer.removeObjectAtIndex(1);
  EXPECT_EQ(held(buffer), (std::vector<int>{1, 3}));
  EXPECT_THROW(buffer.addObject(nullptr), std::invalid_argument);
  EXPECT_EQ(buffer.ringBuffer().size(), 2U);

  VTTagsRingBuffer none;
  none.setMaxTagsCount(0);
  EXPECT_THROW(none.addObject(tag(1)), std::out_of_range);
  EXPECT_EQ(none.count(), 0U);
}

}  // namespace
}  // namespace vantamo::test
