#include "oxu/Json.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <limits>
#include <locale>
#include <map>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using oxu::json::Json;

std::string messageOf(const std::function<void()>& operation) {
  try {
    operation();
  } catch (const std::logic_error& error) {
    return error.what();
  }
  return "";
}

Json arrayOf(std::initializer_list<Json> values) {
  Json array(Json::Array);
  for (const Json& value : values) array.append(value);
  return array;
}

// While it lives, the global locale is the classic one with this facet.
template <class Facet>
struct GlobalFacet {
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Facet));
  ~GlobalFacet() { std::locale::global(before); }
};

struct Grouping : std::numpunct<char> {
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
  char do_decimal_point() const override { return ','; }
};

// The static assertions list what must not compile.
TEST(Json, ConvertsAssignsAndComparesImplicitly) {
  Json j;
  j = 5;
  const int i = j;
  EXPECT_TRUE(j == i);
  EXPECT_TRUE(j != 5.0);
  j.set("x");
  const std::string s = j;
  EXPECT_TRUE(j == s);
  EXPECT_TRUE(j != "y");
  j.set(2.5);
  const double d = j;
  EXPECT_EQ(d, 2.5);
  j.set(true);
  const bool b = j;
  EXPECT_TRUE(j == b);
  j.set(Json::Object);
  j["k"] = Json::Array;
  j["a"]["b"][2] = 1.5;
  char key[] = "a";
  const Json& c = j;
  EXPECT_TRUE(j[key].isObject());
  EXPECT_EQ(&c["none"], &Json::null());
  EXPECT_EQ(&c[key]["b"][9], &Json::null());
  EXPECT_EQ(c.toString(), R"({"a":{"b":[null,null,1.5]},"k":[]})");
  static_assert(!std::is_assignable_v<Json&, long> && !std::is_constructible_v<Json, unsigned>);
  static_assert(std::is_same_v<decltype(c[0]), const Json&> && std::is_same_v<decltype(j[0]), Json&>);
  static_assert(!std::is_convertible_v<const Json&, bool> && !std::is_convertible_v<const Json&, int>);
}

// Each operation on a value of each kind. For a kind that `answers` does not list, the operation throws the message and
// leaves the value unchanged.
TEST(Json, AnswersOrReportsMisuseByKind) {
  using K = Json;
  const auto asConst = [](Json& j) -> const Json& { return j; };
  const std::string noArray = "requires array value", noObject = "[const std::string &] requires object value";
  const struct {
    std::string message;
    std::function<Json(Json&)> operation;
    std::map<Json::Type, std::string> answers;
  } rows[] = {
      {"asBool value type error", [](Json& j) { return j.asBool(); }, {{K::Bool, "true"}}},
      {"asInt value type error", [](Json& j) { return j.asInt(); }, {{K::Int, "7"}}},
      {"asDouble value type error", [](Json& j) { return j.asDouble(); }, {{K::Double, "2.5"}}},
      {"asString value type error", [](Json& j) { return j.asString(); }, {{K::String, "\"x\""}}},
      {"operator (bool) requires bool value", [](Json& j) { return j.operator bool(); }, {{K::Bool, "true"}}},
      {"operator (int) requires int value", [](Json& j) { return j.operator int(); }, {{K::Int, "7"}}},
      {"operator (double) requires double value", [](Json& j) { return j.operator double(); }, {{K::Double, "2.5"}}},
      {"operator (std::string) requires std::string value",
       [&](Json& j) { return j.operator std::string() + std::string(asConst(j)); },
       {{K::String, "\"xx\""}}},
      {"size value type error", [](Json& j) { return j.size(); }, {{K::Array, "2"}, {K::Object, "1"}}},
      {"empty value type error",
       [](Json& j) { return j.empty(); },
       {{K::Null, "true"}, {K::Array, "false"}, {K::Object, "false"}}},
      {"operator [int] " + noArray, [](Json& j) { return j[1]; }, {{K::Null, "null"}, {K::Array, "2"}}},
      {"operator " + noObject, [](Json& j) { return j["a"]; }, {{K::Null, "null"}, {K::Object, "1"}}},
      {"append " + noArray, [](Json& j) { return j.append(3); }, {{K::Null, "[3]"}, {K::Array, "[1,2,3]"}}},
      {"get [int] " + noArray,
       [&](Json& j) { return Json().append(asConst(j)[-1]).append(j.get(1)).append(asConst(j)[2]); },
       {{K::Array, "[null,2,null]"}}},
      {"get " + noObject,
       [&](Json& j) { return Json().append(asConst(j)["a"]).append(j.get("b")); },
       {{K::Object, "[1,null]"}}},
  };
  Json object;
  object["a"] = 1;
  for (const Json& sample : {Json(), Json(true), Json(7), Json(2.5), Json("x"), arrayOf({1, 2}), object}) {
    for (const auto& row : rows) {
      SCOPED_TRACE(row.message + " of " + sample.toString());
      Json value = sample;
      std::string text;
      const std::string message = messageOf([&] { text = row.operation(value).toString(); });
      const auto answer = row.answers.find(sample.type());
      const bool isMisuse = answer == row.answers.end();
      EXPECT_EQ(message, isMisuse ? "function Json::" + row.message : "");
      if (isMisuse)
        EXPECT_EQ(value.toString(), sample.toString());
      else
        EXPECT_EQ(text, answer->second);
    }
  }
}

TEST(Json, RefusesANegativeIndexAndANullPointer) {
  Json value;
  const char* const noText = nullptr;
  EXPECT_NE(messageOf([&] { value = noText; }), "");
  EXPECT_NE(messageOf([&] { value[noText]; }), "");
  EXPECT_TRUE(value.isNull());
  EXPECT_EQ(messageOf([&] { value[-1]; }), "function Json::operator [int] index less 0");
  EXPECT_EQ(value.toString(), "[]") << "it became an array before the index was refused";
}

TEST(Json, ToStringWritesCompactTextWithoutEscapes) {
  EXPECT_EQ(arrayOf({Json(), true, false, INT_MIN, "", "a", arrayOf({}), Json::Object}).toString(),
            "[null,true,false,-2147483648,\"\",\"a\",[],{}]");
  for (const double value : {2.5, 0.1, 100000.0, 999999.5, 1e6, 1e-5, -0.0, HUGE_VAL, std::nan(""), -std::nan("")}) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    EXPECT_EQ(Json(value).toString(), text);
  }
  EXPECT_EQ(Json(std::string("a\"\\\n\0\xff", 6)).toString(), std::string("\"a\"\\\n\0\xff\"", 8));
  Json object;
  for (const char* key : {"b", "aa", "a", "B", "", "\xff", "line\nfeed"}) object[key] = 1;
  EXPECT_EQ(object.toString(), "{\"\":1,\"B\":1,\"a\":1,\"aa\":1,\"b\":1,\"line\nfeed\":1,\"\xff\":1}");

  const GlobalFacet<Grouping> facet;
  EXPECT_EQ(arrayOf({1234567, 1234.5, 0}).toString(), "[1.234.567,1.234,5,0]");
}

TEST(Json, ToJsonWritesTheShortestNumbersThatReadBackInAnyLocale) {
  const GlobalFacet<Grouping> facet;
  EXPECT_EQ(Json(INT_MIN).toJson(), "-2147483648");
  const struct {
    double value;
    const char* text;
  } rows[] = {
      {0.1, "0.1"},
      {1.0 / 3, "0.3333333333333333"},
      {5e-324, "5e-324"},
      {-std::numeric_limits<double>::min(), "-2.2250738585072014e-308"},
      {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
      {HUGE_VAL, "null"},
      {std::nan(""), "null"},
  };
  for (const auto& row : rows) EXPECT_EQ(Json(row.value).toJson(), row.text);
}

TEST(Json, ToJsonEscapesTextAndReplacesInvalidUtf8) {
  Json object;
  object["\"\\\b\f\n\r\t"] = std::string("\0\x1f/\x7f\xc3\xa9", 6);
  object["\xf4\x8f\xbf\xbf"] = "\x80z\xed\xa0";
  EXPECT_EQ(object.toJson(), R"({"\"\\\b\f\n\r\t":"\u0000\u001f/)"
                             "\x7f\xc3\xa9\",\"\xf4\x8f\xbf\xbf\":\"\xef\xbf\xbdz\xef\xbf\xbd\xef\xbf\xbd\"}");
}

TEST(Json, EqualsOnlyAScalarOfTheSameKindAndValue) {
  using namespace std::string_literals;
  const std::vector<Json> values{Json(),  true,        false,        1,           2, 1.0, 0.0, "", "x\0y"s,
                                 "x\0z"s, arrayOf({}), arrayOf({1}), Json::Object};
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t k = 0; k < values.size(); ++k) {
      Json left = values[i];
      EXPECT_EQ(left == values[k], i == k && !left.isArray() && !left.isObject()) << i << " and " << k;
      EXPECT_EQ(left != values[k], !(left == values[k])) << i << " and " << k;
    }
  }
  Json zero(0.0), nan(std::nan(""));
  EXPECT_TRUE(zero == -0.0);
  EXPECT_TRUE(nan != nan);
}

// An argument that is part of the target, at any depth, is read as it was before the change.
TEST(Json, MayBeGivenAPartOfItself) {
  const struct {
    void (*change)(Json&);
    const char* text;
  } rows[] = {
      {[](Json& j) { j = static_cast<const Json&>(j); }, "[[1,[2]],{\"k\":[3]}]"},
      {[](Json& j) { j = j[0]; }, "[1,[2]]"},
      {[](Json& j) { j.set(j[1]["k"]); }, "[3]"},
      {[](Json& j) { j[0] = j; }, "[[[1,[2]],{\"k\":[3]}],{\"k\":[3]}]"},
      {[](Json& j) { j[1]["k"][0] = j[1]; }, "[[1,[2]],{\"k\":[{\"k\":[3]}]}]"},
      {[](Json& j) { j.append(j); }, "[[1,[2]],{\"k\":[3]},[[1,[2]],{\"k\":[3]}]]"},
      {[](Json& j) { j.append(j[0][1]).append(j[0][1]).append(j[0][1]); }, "[[1,[2]],{\"k\":[3]},[2],[2],[2]]"},
      {[](Json& j) { (j = Json()).append(j); }, "[[]]"},
  };
  for (const auto& row : rows) {
    Json value = arrayOf({arrayOf({1, arrayOf({2})}), Json(Json::Object)});
    value[1]["k"].append(3);
    row.change(value);
    EXPECT_EQ(value.toString(), row.text);
  }
}

void* workWithADeepTree(void*) {
  Json deep;
  Json* innermost = &deep;
  for (int level = 0; level < 1000000; level += 2) {
    Json& member = (*innermost)[0]["k"];
    (*innermost)[0]["a"] = 1;
    innermost = &member;
  }
  Json copy(deep);
  EXPECT_FALSE(copy == deep) << "containers are never equal";
  EXPECT_TRUE(copy.toString() == deep.toString());
  EXPECT_TRUE(copy.toJson() == deep.toString());
  deep = 1;
  copy.clear();
  EXPECT_EQ(copy.toString(), "[]");
  return nullptr;
}

// The stack is too small for one call per level of a million levels.
TEST(Json, TreesOfAnyDepthFitIntoASmallStack) {
  pthread_attr_t attributes;
  pthread_t thread;
  ::pthread_attr_init(&attributes);
  ::pthread_attr_setstacksize(&attributes, 512 << 10);
  ASSERT_EQ(::pthread_create(&thread, &attributes, workWithADeepTree, nullptr), 0);
  ::pthread_join(thread, nullptr);
  ::pthread_attr_destroy(&attributes);
}

}  // namespace
