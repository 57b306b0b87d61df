#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <limits>

#include "wire/json.h"
#include "wire/random_tree.h"

namespace paddock::wire {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::optional<Value> parse(std::string_view text) {
  std::string error;
  auto value = parseJson(text, error);
  EXPECT_EQ(value.has_value(), error.empty()) << text << ": " << error;
  return value;
}

std::string errorOf(std::string_view text) {
  std::string error;
  EXPECT_FALSE(parseJson(text, error)) << text;
  return error;
}

std::string nested(std::size_t levels) {
  return std::string(levels, '[') + std::string(levels, ']');
}

TEST(JsonReader, ReadsEveryKind) {
  const auto value =
      parse(R"( {"a": [1, -2, true, false, "x\u00e9\n"], "d": {"$data": "Zm9v"}, "e": {}} )");
  ASSERT_TRUE(value);
  EXPECT_EQ(*value, Value(Dictionary{{"a", Array{1, -2, true, false, "x\xC3\xA9\n"}},
                                     {"d", Data{{'f', 'o', 'o'}}},
                                     {"e", Dictionary{}}}));
}

TEST(JsonReader, ReadsTopLevelScalars) {
  EXPECT_EQ(parse("7"), Value(7));
  EXPECT_EQ(parse("\"7\""), Value("7"));
  EXPECT_EQ(parse("true"), Value(true));
  EXPECT_EQ(parse("[]"), Value(Array{}));
}

TEST(JsonReader, ReadsSignedAndUnsignedIntegerRanges) {
  EXPECT_EQ(parse("-9223372036854775808"), Value(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(parse("9223372036854775807"), Value(std::numeric_limits<std::int64_t>::max()));
  EXPECT_EQ(parse("9223372036854775808"), Value::fromUnsigned(9223372036854775808ULL));
  EXPECT_EQ(parse("18446744073709551615"), Value(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_EQ(parse("-0"), Value(0));
}

TEST(JsonReader, RefusesNumbersOutOfRange) {
  EXPECT_EQ(errorOf("[-9223372036854775809]"), "line 1, column 2: the number does not fit 64 bits");
  EXPECT_EQ(errorOf("18446744073709551616"), "line 1, column 1: the number does not fit 64 bits");
  EXPECT_EQ(errorOf("[" + std::string(400, '9') + "]"),
            "line 1, column 2: the number does not fit 64 bits");
}

TEST(JsonReader, RefusesFractionsAndExponents) {
  const std::string what = "a number cannot have a fraction or an exponent";
  EXPECT_EQ(errorOf("{\"a\":\n 1.0}"), "line 2, column 2: " + what);
  EXPECT_EQ(errorOf("1e3"), "line 1, column 1: " + what);
  EXPECT_EQ(errorOf("[1, 2E0]"), "line 1, column 5: " + what);
  EXPECT_EQ(errorOf("[1e999]"), "line 1, column 2: " + what);
}

TEST(JsonReader, TreatsNullMemberAsMissingKey) {
  EXPECT_EQ(parse(R"({"a":null,"b":1})"), Value(Dictionary{{"b", 1}}));
  EXPECT_EQ(parse(R"({"a":null})"), Value(Dictionary{}));
  EXPECT_EQ(parse(R"({"a":null,"$data":"Zg=="})"), Value(Data{{'f'}}));
}

TEST(JsonReader, RefusesNullOutsideMembers) {
  EXPECT_EQ(errorOf("[1, null]"), "line 1, column 5: null can only be the value of a member");
  EXPECT_EQ(errorOf("null"), "line 1, column 1: null can only be the value of a member");
}

TEST(JsonReader, RefusesRepeatedKey) {
  EXPECT_EQ(errorOf(R"({"a":1,"b":2,"a":1})"),
            "line 1, column 19: the object that ends here has the key \"a\" twice");
  EXPECT_THAT(errorOf(R"({"a":null,"a":1})"), HasSubstr("\"a\" twice"));
  EXPECT_THAT(errorOf(R"({"x":{"\u0061":1,"a":2}})"), HasSubstr("\"a\" twice"));
  EXPECT_TRUE(parse(R"({"a":{"a":1},"A":1})"));
}

TEST(JsonReader, TruncatesLongKeyInMessage) {
  const std::string key(100000, 'k');
  EXPECT_LT(errorOf("{\"" + key + "\":1,\"" + key + "\":2}").size(), 200U);
}

TEST(JsonReader, ReadsDataOnlyFromSingleKeyWithString) {
  EXPECT_EQ(parse(R"({"$data":""})"), Value(Data{}));
  EXPECT_EQ(parse(R"({"$data":1})"), Value(Dictionary{{"$data", 1}}));
  EXPECT_EQ(parse(R"({"$data":"Zg==","x":1})"), Value(Dictionary{{"$data", "Zg=="}, {"x", 1}}));
}

TEST(JsonReader, RefusesDataWithInvalidBase64) {
  EXPECT_EQ(errorOf(R"({"$data":"Zg="})"),
            "line 1, column 15: the text of \"$data\" that ends here is not base64");
}

TEST(JsonReader, LimitsNestingToSixtyFourLevels) {
  EXPECT_TRUE(parse(nested(64)));
  EXPECT_EQ(errorOf(nested(65)), "line 1, column 65: nesting is deeper than 64 levels");
  EXPECT_THAT(errorOf(std::string(16 << 20, '[')), StartsWith("line 1, column 65: "));
}

TEST(JsonReader, RefusesInvalidUtf8) {
  EXPECT_THAT(errorOf("{\"a\":\"\xFF\"}"), StartsWith("line 1, column 7: "));
  EXPECT_THAT(errorOf("[\"\xC3\"]"), HasSubstr("UTF-8"));
  EXPECT_THAT(errorOf("[\"\xED\xA0\x80\"]"), HasSubstr("UTF-8"));
  EXPECT_THAT(errorOf("[\"\xC0\xAF\"]"), HasSubstr("UTF-8"));
  EXPECT_NE(errorOf("[\"\\ud800\"]"), "");
}

TEST(JsonReader, RefusesTrailingBytes) {
  EXPECT_THAT(errorOf("{} x"), StartsWith("line 1, column 4: "));
  EXPECT_NE(errorOf("{}{}"), "");
}

TEST(JsonReader, RefusesNulByteAnywhere) {
  using namespace std::string_view_literals;
  EXPECT_EQ(errorOf("{}\0"sv), "line 1, column 3: a NUL byte");
  EXPECT_EQ(errorOf("{\"a\":\"\0\"}"sv), "line 1, column 7: a NUL byte");
  EXPECT_EQ(parse(R"("\u0000")"), Value("\0"sv));
}

TEST(JsonReader, RefusesMalformedTextWithPosition) {
  EXPECT_THAT(errorOf(""), StartsWith("line 1, column 1: "));
  EXPECT_THAT(errorOf("{\n  \"a\": 1,\n}"), StartsWith("line 3, column 1: "));
  for (const std::string_view text : {"[1,]", "{\"a\"}", "{a:1}", "{'a':1}", "01", "+1", "[1 2]",
                                      "\"\t\"", "NaN", "// x\n1", "{", "[", "\"", "tru"}) {
    EXPECT_THAT(errorOf(text), StartsWith("line ")) << text;
  }
}

TEST(JsonReader, OmitsInputFromMessages) {
  EXPECT_THAT(errorOf(R"({"password":"secret" "x"})"), testing::Not(HasSubstr("secret")));
  EXPECT_LT(errorOf("[\"" + std::string(100000, 'x') + "\xFF\"]").size(), 300U);
}

TEST(JsonReader, ReadsHundredsOfThousandsOfUnorderedKeys) {
  constexpr int kKeys = 300000;
  std::string text = "{";
  for (int key = kKeys; key > 0; --key) text += "\"" + std::to_string(key) + "\":0,";
  text.back() = '}';
  const auto value = parse(text);
  ASSERT_TRUE(value);
  EXPECT_EQ(value->dictionary()->size(), std::size_t{kKeys});
}

void* parseNestedText(void* result) {
  std::string error;
  std::string deepest = "1";
  for (int level = 0; level < 64; ++level) deepest = "{\"k\":" + deepest + "}";
  const auto value = parseJson(deepest, error);
  *static_cast<bool*>(result) =
      value && writeJson(*value) == deepest && !parseJson(std::string(1 << 20, '['), error);
  return nullptr;
}

TEST(JsonReader, FitsSmallThreadStack) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 512 << 10), 0);
  pthread_t thread{};
  bool good = false;
  ASSERT_EQ(pthread_create(&thread, &attributes, parseNestedText, &good), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  EXPECT_TRUE(good);
}

TEST(JsonReader, ReadsBackWriterOutput) {
  for (unsigned seed = 0; seed < 2000; ++seed) {
    const Value tree = RandomTree(seed).value();
    EXPECT_EQ(parse(writeJson(tree)), tree) << seed;
    EXPECT_EQ(parse(writeJsonPretty(tree)), tree) << seed;
  }
}

}  // namespace
}  // namespace paddock::wire
