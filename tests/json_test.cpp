#include "oxu/Json.h"
#include "tests/support/Test.h"

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

// What users write, and what must not compile.
TEST(Json, TakesPartInExpressionsAsUsersWriteThem) {
  Json j;
  j = 5;
  const int i = j;
  EXPECT_TRUE(i == 5 && j == 5 && j != 6 && j != 5.0);
  j = "x";
  const std::string s = j;
  EXPECT_TRUE(s == "x" && j == "x" && j == std::string("x") && j != "y");
  j = 2.5;
  const double d = j;
  EXPECT_EQ(d, 2.5);
  j = true;
  EXPECT_TRUE(j ? j == true : false);
  j = Json::Object;
  j["k"] = Json::Array;
  j["a"]["b"][2] = 1.5;
  char key[] = "a";
  const Json& c = j;
  EXPECT_TRUE(c["k"].isArray() && j[key].isObject() && &c["none"] == &Json::null() && &c[key]["b"][9] == &Json::null());
  EXPECT_EQ(c.toString(), R"({"a":{"b":[null,null,1.5]},"k":[]})");
  static_assert(!std::is_assignable_v<Json&, long> && !std::is_constructible_v<Json, unsigned>);
  static_assert(std::is_same_v<decltype(c[0]), const Json&> && std::is_same_v<decltype(j[0]), Json&>);
  static_assert(!std::is_convertible_v<const Json&, bool> && !std::is_convertible_v<const Json&, int>);
}

// Each operation on a value of each kind: its answers in the order of the kinds, with "-" for its message, after
// which the value is as it was.
TEST(Json, AnswersOrReportsMisuseByKind) {
  const auto read = [](Json& j) -> const Json& { return j; };
  const std::string noInt = "requires array value", noKey = "[const std::string &] requires object value";
  const struct {
    std::function<Json(Json&)> operation;
    std::string message, answers;
  } rows[] = {
      {[](Json& j) { return j.asBool(); }, "asBool value type error", "- true - - - - -"},
      {[](Json& j) { return j.asInt(); }, "asInt value type error", "- - 7 - - - -"},
      {[](Json& j) { return j.asDouble(); }, "asDouble value type error", "- - - 2.5 - - -"},
      {[](Json& j) { return j.asString(); }, "asString value type error", "- - - - \"x\" - -"},
      {[](Json& j) { return j.operator bool(); }, "operator (bool) requires bool value", "- true - - - - -"},
      {[](Json& j) { return j.operator int(); }, "operator (int) requires int value", "- - 7 - - - -"},
      {[](Json& j) { return j.operator double(); }, "operator (double) requires double value", "- - - 2.5 - - -"},
      {[&](Json& j) { return j.operator std::string() + std::string(read(j)); },
       "operator (std::string) requires std::string value", "- - - - \"xx\" - -"},
      {[](Json& j) { return j.size(); }, "size value type error", "- - - - - 2 1"},
      {[](Json& j) { return j.empty(); }, "empty value type error", "true - - - - false false"},
      {[](Json& j) { return j[1]; }, "operator [int] " + noInt, "null - - - - 2 -"},
      {[](Json& j) { return j["a"]; }, "operator " + noKey, "null - - - - - 1"},
      {[](Json& j) { return j.append(3); }, "append " + noInt, "[3] - - - - [1,2,3] -"},
      {[&](Json& j) { return Json().append(read(j)[-1]).append(j.get(1)).append(read(j)[2]); }, "get [int] " + noInt,
       "- - - - - [null,2,null] -"},
      {[&](Json& j) { return Json().append(read(j)["a"]).append(j.get("b")); }, "get " + noKey, "- - - - - - [1,null]"},
      {[](Json& j) { return j.has(-1) || j.remove(2) || (j.has(0) ? j.remove(0) && !j.has(1) : j.remove(0)); }, "",
       "false false false false false true false"},
      {[](Json& j) { return j.has("a") && !j.has("b") && !j.remove("b") && j.remove("a") && !j.has("a"); }, "",
       "false false false false false false true"},
      {[](Json& j) { return j.clear(), j; }, "", "null false 0 0 \"\" [] {}"},
  };
  Json object;
  object["a"] = 1;
  const Json samples[] = {Json(), true, 7, 2.5, "x", arrayOf({1, 2}), object};
  for (const auto& row : rows) {
    std::istringstream answers(row.answers);
    for (const Json& sample : samples) {
      std::string expected, actual;
      answers >> expected;
      Json value = 0;
      value.set(sample);
      const std::string message = messageOf([&] { actual = row.operation(value).toString(); });
      EXPECT_EQ(message, expected == "-" ? "function Json::" + row.message : "") << sample.type();
      EXPECT_EQ(expected == "-" ? value.toString() : actual, expected == "-" ? sample.toString() : expected);
    }
  }
  Json null;
  EXPECT_EQ(messageOf([&] { null[-1]; }), "function Json::operator [int] index less 0");
  const char* const noText = nullptr;
  EXPECT_NE(messageOf([&] { null = noText; }), "");
  EXPECT_NE(messageOf([&] { null[noText]; }), "");
  EXPECT_EQ(null.toString(), "[]");
}

TEST(Json, IsSetToEachKind) {
  Json j = arrayOf({1});
  const std::function<void()> sets[] = {[&] { j.set(true); }, [&] { j.set(-7); },
                                        [&] { j.set(0.5); },  [&] { j.set(std::string("s")); },
                                        [&] { j.set("c"); },  [&] { j.set(Json::Object); }};
  std::string texts;
  for (const auto& set : sets) texts += (set(), j.toString() + " ");
  EXPECT_EQ(texts, "true -7 0.5 \"s\" \"c\" {} ");
}

TEST(Json, WritesEachKindAsCompactText) {
  EXPECT_EQ(arrayOf({Json(), true, false, INT_MIN, "", "a", arrayOf({}), Json::Object}).toString(),
            "[null,true,false,-2147483648,\"\",\"a\",[],{}]");
  for (const double value : {2.0, 2.5, 0.1, 3.14159265358979, 100000.0, 999999.5, 1e6, 1e-4, 1e-5, -0.0, 1e21, HUGE_VAL,
                             -HUGE_VAL, std::nan(""), -std::nan("")}) {
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

// A stream swallows what its locale throws.
TEST(Json, WritesNoTextWithoutItsNumbersWhereMemoryRunsOut) {
  struct Exhausted : std::num_put<char> {
    iter_type do_put(iter_type, std::ios_base&, char, long) const override { throw std::bad_alloc(); }
    iter_type do_put(iter_type, std::ios_base&, char, double) const override { throw std::bad_alloc(); }
  };
  const GlobalFacet<Exhausted> facet;
  for (const Json& number : {Json(7), Json(2.5)}) {
    EXPECT_THROW(arrayOf({"text", number}).toString(), std::bad_alloc) << number.type();
  }
  EXPECT_EQ(arrayOf({"text", true}).toString(), R"(["text",true])");
}

TEST(Json, WritesValidJsonWithEveryDigitInAnyLocale) {
  const GlobalFacet<Grouping> facet;
  EXPECT_EQ(arrayOf({Json(), true, false, INT_MIN, Json::Array, Json::Object}).toJson(),
            "[null,true,false,-2147483648,[],{}]");
  const struct {
    double value;
    const char* text;
  } rows[] = {
      {0.1, "0.1"},
      {2.0, "2"},
      {-0.0, "-0"},
      {1234567.5, "1234567.5"},
      {1.0 / 3, "0.3333333333333333"},
      {5e-324, "5e-324"},
      {-std::numeric_limits<double>::min(), "-2.2250738585072014e-308"},
      {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
      {HUGE_VAL, "null"},
      {std::nan(""), "null"},
  };
  for (const auto& row : rows) EXPECT_EQ(Json(row.value).toJson(), row.text);
}

// The replacement character, so many times.
std::string replaced(int bytes) {
  std::string text;
  while (bytes-- > 0) text += "\xef\xbf\xbd";
  return text;
}

TEST(Json, EscapesStringsAndKeysAndReplacesEachByteThatIsNoUtf8) {
  using namespace std::string_literals;
  const struct {
    std::string bytes, escaped;
  } rows[] = {
      {"", ""},
      {" a/'\x7f", " a/'\x7f"},
      {"\"\\\b\f\n\r\t", R"(\"\\\b\f\n\r\t)"},
      {"a\0b\x01\x0b\x1f"s, R"(a\u0000b\u0001\u000b\u001f)"},
      // The first and the last characters of each length, and those beside the surrogates.
      {"\xc2\x80\xdf\xbf", "\xc2\x80\xdf\xbf"},
      {"\xe0\xa0\x80\xef\xbf\xbf", "\xe0\xa0\x80\xef\xbf\xbf"},
      {"\xed\x9f\xbf\xee\x80\x80", "\xed\x9f\xbf\xee\x80\x80"},
      {"\xf0\x90\x80\x80\xf4\x8f\xbf\xbf", "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf"},
      // Continuations alone, and bytes that are never used.
      {"\x80z\xbf\xfe\xff", replaced(1) + "z" + replaced(3)},
      // Overlong forms, surrogates, and what is too large.
      {"\xc0\xaf\xc1\xbf", replaced(4)},
      {"\xf0\x8f\xbf\xbf", replaced(4)},
      {"\xed\xa0\x80\xed\xbf\xbf", replaced(6)},
      {"\xf4\x90\x80\x80\xf5\x80\x80\x80", replaced(8)},
      // Cut off by the end, by a plain byte, by one that needs an escape, and by another character.
      {"\xc3", replaced(1)},
      {"\xf0\x9f\x98z", replaced(3) + "z"},
      {"\xe2\x82\xc3\xa9", replaced(2) + "\xc3\xa9"},
  };
  for (const auto& row : rows) {
    Json object;
    object[row.bytes] = row.bytes;
    EXPECT_EQ(object.toJson(), "{\"" + row.escaped + "\":\"" + row.escaped + "\"}");
  }
  Json alike;
  alike["\xfe"] = 1;
  alike["\xff"] = 2;
  EXPECT_EQ(alike.toJson(), "{\"" + replaced(1) + "\":1,\"" + replaced(1) + "\":2}");
}

TEST(Json, EqualsOnlyScalarsOfTheSameKind) {
  using namespace std::string_literals;
  const std::vector<Json> values{Json(),  true,        false,        1,           2, 1.0, 0.0, "", "x\0y"s,
                                 "x\0z"s, arrayOf({}), arrayOf({1}), Json::Object};
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t k = 0; k < values.size(); ++k) {
      Json left = values[i];
      EXPECT_TRUE((left == values[k]) == (i == k && i < 10) && (left == values[k]) != (left != values[k])) << i << k;
    }
  }
  Json zero(0.0), nan(std::nan("")), array(Json::Array);
  EXPECT_TRUE(zero == -0.0 && nan != nan && array != array);
}

// A source that is part of its target, at any depth, counts with its former content.
TEST(Json, MayBeGivenAPartOfItself) {
  const std::pair<std::function<void(Json&)>, const char*> rows[] = {
      {[](Json& j) { j = static_cast<const Json&>(j); }, "[[1,[2]],{\"k\":[3]}]"},
      {[](Json& j) { j = j[0]; }, "[1,[2]]"},
      {[](Json& j) { j.set(j[1]["k"]); }, "[3]"},
      {[](Json& j) { j[0] = j; }, "[[[1,[2]],{\"k\":[3]}],{\"k\":[3]}]"},
      {[](Json& j) { j[1]["k"][0] = j[1]; }, "[[1,[2]],{\"k\":[{\"k\":[3]}]}]"},
      {[](Json& j) { j.append(j); }, "[[1,[2]],{\"k\":[3]},[[1,[2]],{\"k\":[3]}]]"},
      {[](Json& j) { j.append(j[0][1]).append(j[0][1]).append(j[0][1]); }, "[[1,[2]],{\"k\":[3]},[2],[2],[2]]"},
      {[](Json& j) { j = Json(), j.append(j); }, "[[]]"},
  };
  for (const auto& [operation, result] : rows) {
    Json value = arrayOf({arrayOf({1, arrayOf({2})}), Json(Json::Object)});
    value[1]["k"].append(3);
    operation(value);
    EXPECT_EQ(value.toString(), result);
  }
}

// An element that was copied would have its own elements elsewhere. Growth that copied, or that made room for one
// more at a time, would not end in time.
TEST(Json, ElementsThatMerelyChangePlaceAreNotCopied) {
  Json j;
  std::vector<Json*> inner;
  for (int i = 0; i < 200000; ++i) {
    i % 2 == 0 ? j.append(arrayOf({i})) : j[i] = arrayOf({i});
    inner.push_back(&j[i][0]);
  }
  for (const int index : {0, 199998, 7}) {
    EXPECT_TRUE(j.remove(index));
    inner.erase(inner.begin() + index);
  }
  ASSERT_EQ(j.size(), 199997);
  for (int i = 0; i < j.size(); ++i) ASSERT_EQ(&j[i][0], inner[static_cast<std::size_t>(i)]);
}

TEST(Json, TreesOfAnyDepthNeedNoStack) {
  Json deep;
  Json* innermost = &deep;
  for (int i = 0; i < 1000000; ++i) {
    if (i % 2 == 1) (*innermost)["a"] = 1;
    innermost = i % 2 == 0 ? &(*innermost)[0] : &(*innermost)["k"];
  }
  Json copy(deep);
  EXPECT_FALSE(copy == deep);
  EXPECT_EQ(copy.toString(), deep.toString());
  EXPECT_EQ(copy.toJson(), deep.toString());
  deep = 1;
  copy.clear();
  EXPECT_EQ(copy.toString(), "[]");
}

}  // namespace
