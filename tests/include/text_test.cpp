#include "vantamo/text.h"

#include <gtest/gtest.h>

#include <array>

#include "vantamo/events.h"

namespace vantamo::test {
namespace {

TEST(TextTest, AbsentAndEmptyStayDifferent) {
  const char* null = nullptr;
  const std::optional<std::string> nothing;
  for (const Text& text : {Text(), Text(nullptr), Text(null), Text(std::nullopt), Text(nothing)}) {
    EXPECT_FALSE(text.present());
    EXPECT_FALSE(text.copy());
  }
  const std::string owned;
  const std::optional<std::string> something = "";
  for (const Text& text : {Text(""), Text(owned), Text(std::string_view()), Text(something)}) {
    EXPECT_TRUE(text.present());
    EXPECT_TRUE(text.absentOrEmpty());
    EXPECT_EQ(text.copy(), "");
  }
  EXPECT_EQ(Text(std::string_view("a\0b", 3)).view().size(), 3U);
}

TEST(TextListTest, AbsentEmptyAndFilledFromManySources) {
  const std::optional<std::vector<std::string>> nothing;
  for (const TextList& list : {TextList(), TextList(nullptr), TextList(nothing)}) {
    EXPECT_FALSE(list.present());
    EXPECT_EQ(list.size(), 0U);
  }
  const std::vector<std::string> empty;
  EXPECT_TRUE(TextList(empty).present());
  const std::array<const char*, 2> pointers = {"a", "b"};
  const std::optional<std::vector<std::string>> strings = {{"a", "b"}};
  for (const TextList& list : {TextList(pointers), TextList(strings), TextList(*strings)}) {
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[1], "b");
  }
  const std::vector<std::optional<std::string>> gaps = {"a", std::nullopt};
  EXPECT_EQ(TextList(gaps)[1], "");
}

std::size_t countOf(const PageView& event) {
  return event.attributes.present() ? event.attributes.size() : 99;
}

TEST(TextListTest, BracesMeanTheSameInEveryShape) {
  EXPECT_EQ(countOf({.attributes = {"a", "b"}}), 2U);
  EXPECT_EQ(countOf({.attributes = {{"a", "b"}}}), 2U);
  EXPECT_EQ(countOf({.attributes = {"a"}}), 1U);
  EXPECT_EQ(countOf({.attributes = {}}), 99U);
  EXPECT_EQ(countOf({"p", "c", nullptr, nullptr, {"a", "b", "c"}}), 3U);
}

}  // namespace
}  // namespace vantamo::test
