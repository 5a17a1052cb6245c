// What the inspector makes of a tag: its check, its replay line, faults, filters of origin.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "support/json.h"
#include "tags/attributes.h"
#include "tools/collect/expectations.h"
#include "tools/collect/faults.h"
#include "tools/collect/replay_line.h"
#include "tools/collect/request_guard.h"
#include "tools/collect/session_book.h"
#include "tools/collect/tag_check.h"
#include "tools/collect/tag_stream.h"

namespace vantamo::tools::collect {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr double now = 1'800'000'000;

Value::Map cart() {
  return {{"tid", "4"},
          {"at", "5"},
          {"pr", "sku"},
          {"pm", "Shoe"},
          {"qt", "2"},
          {"bp", "19.90"},
          {"cg", ""},
          {"cc", "EUR"},
          {"s_a1", "red"},
          {"s_a2", "42"},
          {"ha1", tags::digestOf("red-_-42")},
          {"ul", "APP_APPLE_A"},
          {"vn2", "e4.0"},
          {"st", "1800000000"},
          {"vn1", "4.1.8"},
          {"ec", "UTF-8"},
          {"cjen", "1"},
          {"cjuid", "123"},
          {"cjsid", "1234567890"},
          {"cjvf", "1"}};
}

Value::Map pageView() {
  Value::Map tag = cart();
  for (const char* key : {"at", "pr", "pm", "qt", "bp", "cc", "s_a1", "s_a2", "ha1"}) {
    tag.erase(key);
  }
  tag.merge({{"tid", "1"}, {"pi", "home"}, {"se", ""}, {"sr", ""}});
  return tag;
}

Value::Map registration() {
  Value::Map tag = pageView();
  for (const char* key : {"pi", "cg", "se", "sr"}) tag.erase(key);
  tag.merge({{"tid", "2"},
             {"cd", "c"},
             {"em", "e"},
             {"ct", "x"},
             {"sa", "y"},
             {"zp", "z"},
             {"cy", "GB"}});
  return tag;
}

Value::Map link() {
  Value::Map tag = pageView();
  for (const char* key : {"cg", "se", "sr"}) tag.erase(key);
  tag.merge({{"tid", "8"}, {"ti", "1800000000"}, {"nm", "imprint"}, {"hr", "/imprint"}});
  return tag;
}

std::vector<std::string> problemsOf(const Value::Map& tag) {
  std::vector<std::string> texts;
  for (const Problem& problem : readTag(support::writeJson(tag), now).problems) {
    texts.push_back(problem.text);
  }
  return texts;
}

std::string times(int count, const std::string& text) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

struct Wrong {
  Value::Map (*tag)();
  Value::Map changes;   // null removes
  const char* problem;  // null for none
};

TEST(TagCheckTest, EachProblemIsToldInWordsAndOnlyThat) {
  const std::string clef = "\xF0\x9D\x84\x9E";  // two UTF-16 code units
  const std::vector<Wrong> cases = {
      {&cart, {}, nullptr},
      {&pageView, {}, nullptr},
      {&link, {}, nullptr},
      {&cart, {{"ci", "1"}}, nullptr},
      {&cart, {{"zz", "1"}}, "\"zz\" is no key of fireShopAction5"},
      {&cart, {{"hr", "1"}}, "is no key of fireShopAction5; it is link of fireLinkClick"},
      {&cart, {{"pv_a1", "1"}}, "\"pv_a1\" is no key"},
      {&cart, {{"pr", nullptr}}, "required pr (productId) is missing"},
      {&cart, {{"pr", ""}}, "pr (productId) is empty; it is required"},
      {&cart, {{"cg", nullptr}}, "cg (category) is missing; it is always written"},
      {&cart, {{"qt", "123456789"}}, "qt (quantity) has 9 characters; the limit is 8"},
      {&cart, {{"cg", times(128, clef)}}, nullptr},
      {&cart, {{"cg", times(128, clef) + "x"}}, "has 257 characters; the limit is 256"},
      {&cart, {{"s_a2", 7}}, "\"s_a2\" must be a string, not integer"},
      {&cart, {{"ha1", "F" + std::string(39, 'a')}}, "ha1 must be 40 lower-case hexadecimal"},
      {&cart, {{"ha1", std::string(40, 'a')}}, "ha1 is not the digest of the attributes"},
      {&cart, {{"ha1", nullptr}}, "ha1 (digest of the attributes) is missing"},
      {&cart, {{"s_a1", nullptr}}, "s_a2 is there, but s_a1 is missing"},
      {&cart, {{"s_a51", "x"}}, "s_a51 is past the 50 attributes"},
      {&cart, {{"at", "6"}}, "at must be 5 (cart) or 9 (purchase)"},
      {&cart, {{"tid", "77"}}, "tid \"77\" is no event"},
      {&cart, {{"tid", nullptr}}, "tid (kind of event) is missing"},
      {&pageView, {{"sr", nullptr}}, "sr (searchResult) is missing; it goes with se (searchTerm)"},
      {&pageView, {{"sr", nullptr}, {"se", nullptr}}, nullptr},
      {&pageView, {{"ul", "APP_APPLE_A/?vq_mmc=" + times(14, "x-_-") + "x"}}, nullptr},
      {&pageView,
       {{"ul", "APP_APPLE_A/?vq_mmc=" + times(15, "x-_-") + "x"}},
       "ul (vqmmc) has 16 entries; the limit is 15"},
      {&pageView,
       {{"ul", "APP_APPLE_A/?vq_mmc=x-_-" + times(101, "y")}},
       "ul (vqmmc) has 101 characters in one entry; the limit is 100"},
      {&cart, {{"ul", "APP_APPLE_A/?vq_mmc=x"}}, "which only firePageView has"},
      {&cart, {{"ul", "APP_APPLE_(null)"}}, "AppName is not set"},
      {&cart, {{"ul", "A"}}, "ul must begin with APP_APPLE_"},
      {&cart, {{"vn2", "e4.1"}}, "vn2 must be e4.0, not \"e4.1\""},
      {&cart, {{"st", "soon"}}, "st must be whole seconds since 1970"},
      {&cart, {{"st", "1800100000"}}, "more than a day ahead"},
      {&cart, {{"cjsid", "123"}}, "cjsid (session id) must be 10 digits"},
      {&cart, {{"cjuid", "me"}}, "cjuid (visitor id) must be digits"},
      {&cart, {{"ec", nullptr}}, "ec (encoding) is missing; it is in every tag"},
      {&registration, {}, nullptr},
      {&registration, {{"cy", nullptr}}, "cy (customerCountry) is missing; it is always written"},
      {&link, {{"ti", "x"}}, "ti must be a whole number"},
      {&link, {{"nm", nullptr}}, nullptr}};
  for (const Wrong& row : cases) {
    Value::Map tag = row.tag();
    for (const auto& [key, value] : row.changes) {
      if (value.isNull()) {
        tag.erase(key);
      } else {
        tag.set(key, value);
      }
    }
    if (row.problem == nullptr) {
      EXPECT_THAT(problemsOf(tag), IsEmpty()) << support::writeJson(tag);
    } else {
      EXPECT_THAT(problemsOf(tag), testing::Contains(HasSubstr(row.problem)));
    }
  }
}

TEST(TagCheckTest, MoreAttributesThanAreWrittenMakeTheDigestUnknowable) {
  Value::Map tag = cart();
  for (int i = 1; i <= 50; ++i) tag.set("s_a" + std::to_string(i), "x");
  EXPECT_THAT(problemsOf(tag), IsEmpty());
  tag.erase("s_a50");
  EXPECT_THAT(problemsOf(tag), ElementsAre(HasSubstr("ha1 is not the digest")));
}

TEST(TagCheckTest, WhatIsNoTagIsToldAndAHostileOneIsCutShort) {
  for (const char* body : {"", "{", "[]", "7", "{\"a\":\"\xFF\"}"}) {
    EXPECT_THAT(readTag(body, now).problems,
                ElementsAre(testing::Field(&Problem::text, HasSubstr("the body is not"))));
  }
  Value::Map tag = cart();
  for (int i = 0; i < 200; ++i) tag.set("k" + std::to_string(i), "");
  EXPECT_EQ(problemsOf(tag).size(), mostProblems + 1);
  EXPECT_EQ(problemsOf(tag).back(), "and 150 more");
  for (int i = 0; i < 300; ++i) tag.set("k" + std::to_string(i), "");
  EXPECT_THAT(problemsOf(tag), ElementsAre(HasSubstr("more than 300 keys in one object")));
  EXPECT_THAT(problemsOf({{"a", Value::List(mostValues, 0)}}),
              ElementsAre(HasSubstr("more than 2,000 values")));
}

TEST(TagCheckTest, TwoSessionsWithOneIdAreFound) {
  struct Step {
    const char* tid;
    const char* session;
    const char* visitor;
    bool isProblem;
  };
  SessionBook book;
  std::uint64_t sequence = 0;
  for (const Step& step : std::initializer_list<Step>{{"6", "1", "7", false},
                                                      {"1", "1", "7", false},
                                                      {"1", "1", "1000000000000003", false},
                                                      {"1", "1", "7", false},
                                                      {"1", "1", "8", true},
                                                      {"6", "1", "7", true},
                                                      {"6", "2", "8", false}}) {
    TagReading reading;
    reading.tag = {{"tid", step.tid}, {"cjsid", step.session}, {"cjuid", step.visitor}};
    reading.event = eventOf(reading.tag);
    EXPECT_EQ(book.enter(reading, ++sequence).empty(), !step.isProblem) << sequence;
  }
}

// The attempt that is delivered is the one that counts, and may not be the first.
TEST(TagCheckTest, WhatIsWrongWithASessionIsToldOfEveryAttempt) {
  TagStore store;
  for (const char* visitor : {"7", "8", "8"}) {
    Value::Map tag = pageView();
    tag.set("cjuid", visitor);
    store.add({.headers = {{"Idempotency-Key", visitor}},
               .body = support::writeJson(tag),
               .received = static_cast<std::int64_t>(now) * 1000},
              {});
  }
  for (std::size_t i = 1; i < 3; ++i) EXPECT_EQ(store.tags()[i]->problems.size(), 1U) << i;
}

TEST(PlanTest, ALineThatCannotBeMeantIsNamed) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"[]", "not a JSON object"},
      {"{}", "expects nothing"},
      {R"({"pi":7})", "member \"pi\" must be a string"},
      {R"({"event":"order","pi":null})", "member \"event\" must be the name of an event"},
      {R"({"event":"fireOrder","pi":null})", "\"pi\" is absent anyway: it is neither a key nor"},
      {R"({"serchTerm":null})", "an argument of any event"},
      {R"({"event":"firePageView","pi":null,"pv_a7":null,"sw":null,"vqmmc":null})", ""},
      {R"({"later":"x"})", ""}};
  for (const auto& [line, fault] : cases) {
    std::istringstream file("# a remark\n" + line + "\n");
    std::string found;
    try {
      static_cast<void>(expectationsOf(file, "plan"));
    } catch (const std::runtime_error& error) {
      found = error.what();
    }
    EXPECT_EQ(found.empty(), fault.empty()) << line << found;
    EXPECT_THAT(found, AllOf(HasSubstr(fault.empty() ? "" : "plan:2: "), HasSubstr(fault)));
  }
}

TEST(TagStreamTest, AnEventIdFromTheFutureSeesAReset) {
  TagStore store;
  const std::string run = "run";
  const Faults faults;
  const unsigned faultsVersion = 1;
  EventStream stream({store, run, faults, faultsVersion}, "run-1000000");
  static_cast<void>(stream.next());
  store.reset();
  EXPECT_THAT(stream.next(), HasSubstr("event: reset\nid: run-1\n"));
}

TEST(FaultsTest, BadOnesAreNamedAndGoodOnesHit) {
  for (const char* text :
       {"", "503:101%", "503:-1", "200:5%", "x:5%", "503:5%%", "503:nan", "99"}) {
    EXPECT_THROW(static_cast<void>(failureOf(text)), BadFault) << text;
  }
  for (const char* text : {"", "2", "2m", "-1s", "601s", "s", "nans"}) {
    EXPECT_THROW(static_cast<void>(durationOf(text)), BadFault) << text;
  }
  const Faults faults = changed({}, {{"fail", "503:20%"}, {"retryAfter", 30}, {"slow", "1.5s"}});
  EXPECT_EQ(verdictOf(faults, 19.9).status, 503);
  EXPECT_EQ(verdictOf(faults, 19.9).retryAfter, 30);
  EXPECT_EQ(verdictOf(faults, 20).status, 204);
  EXPECT_EQ(verdictOf(faults, 20).delay, std::chrono::milliseconds(1500));
  EXPECT_TRUE(verdictOf(changed(faults, {{"refuse", true}}), 0).refused);
  EXPECT_FALSE(changed({.refuse = true}, {{"refuse", nullptr}}).refuse);
  EXPECT_EQ(faultsAsMembers(changed(faults, faultsAsMembers({}))), faultsAsMembers({}));
}

TEST(RequestGuardTest, OtherPagesNeitherReadNorChange) {
  struct Case {
    RequestOrigin request;
    bool onLoopback;
    bool mayRead;
    bool mayChange;
    bool mayPost = true;
  };
  const std::vector<Case> cases = {
      {{.host = "127.0.0.1:8135"}, true, true, true},
      {{.host = "localhost:8135", .origin = "http://localhost:8135"}, true, true, true},
      {{.host = "[::1]:8135"}, true, true, true},
      {{.host = "evil.example:8135"}, true, false, false},
      {{.host = "a.example", .origin = "http://a.example"}, true, false, false, false},
      {{.host = "10.0.0.1:8135"}, true, false, false},
      {{.host = "10.0.0.1:8135"}, false, true, true},
      {{.host = "box.local:8135"}, false, true, true},
      {{.host = "127.0.0.1.evil.example"}, false, false, false},
      {{.host = ""}, true, false, false},
      {{.host = "localhost:8135", .origin = "http://localhost:9"}, true, true, false, false},
      {{.host = "localhost:8135", .origin = "null"}, true, true, false, false},
      {{.host = "localhost:8135", .fetchSite = "same-site"}, true, true, false, false},
      {{.host = "localhost", .contentType = "text/plain", .hasBody = true}, true, true, false},
      {{.host = "localhost", .hasBody = true}, true, true, false},
      {{.host = "localhost", .contentType = "application/json; a=b", .hasBody = true},
       true,
       true,
       true}};
  for (const Case& row : cases) {
    EXPECT_EQ(refusalToRead(row.request, "box", row.onLoopback).empty(), row.mayRead)
        << row.request.host;
    EXPECT_EQ(refusalToPost(row.request, "box", row.onLoopback).empty(), row.mayPost)
        << row.request.host << row.request.origin;
    EXPECT_EQ(refusalToChange(row.request, "box", row.onLoopback).empty(), row.mayChange)
        << row.request.host << row.request.origin;
  }
}

}  // namespace
}  // namespace vantamo::tools::collect
