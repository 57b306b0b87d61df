#include "keelhouse/command_words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {
namespace {

std::string usageError(const std::vector<std::string>& words) {
  try {
    parseCommandWords(words);
  } catch (const Failure& failed) {
    EXPECT_EQ(failed.status(), ExitStatus::usage);
    return failed.what();
  }
  ADD_FAILURE() << ::testing::PrintToString(words) << " was accepted";
  return {};
}

TEST(CommandWords, AcceptAssignmentInThreeWords) {
  const auto command = parseCommandWords({"vsp:command", "=", "syncSharePoints"});
  EXPECT_EQ(command.shortName, "vsp");
  EXPECT_EQ(command.operation, "syncSharePoints");
  EXPECT_EQ(command.arguments, Dictionary{});
}

TEST(CommandWords, AcceptAssignmentInOneWord) {
  const auto command = parseCommandWords({"nfs:command=updateNFS", "nfs:count=0", "nfs:x=a=b"});
  EXPECT_EQ(command.operation, "updateNFS");
  EXPECT_EQ(command.arguments, (Dictionary{{"count", 0}, {"x", "a=b"}}));
}

TEST(CommandWords, AcceptEqualsSignAsValueAndInsideKey) {
  const auto command =
      parseCommandWords({"x:command", "=", "c", "x:a", "=", "=", "x:b=c", "=", "d", "x:e="});
  EXPECT_EQ(command.arguments, (Dictionary{{"a", "="}, {"b=c", "d"}, {"e", ""}}));
}

TEST(CommandWords, NestByKeyPath) {
  const auto command =
      parseCommandWords({"sharing:command", "=", "readSettings", "sharing:optionalArguments:path",
                         "=", "/srv/a", "sharing:a:b:c", "=", "1"});
  EXPECT_EQ(command.arguments, (Dictionary{{"a", Dictionary{{"b", Dictionary{{"c", 1}}}}},
                                           {"optionalArguments", Dictionary{{"path", "/srv/a"}}}}));
}

TEST(CommandWords, TurnConsecutiveIndexKeysIntoArray) {
  const auto command = parseCommandWords({"x:command=c", "x:p:1=b", "x:p:0=a", "x:p:2:k=c"});
  EXPECT_EQ(command.arguments, (Dictionary{{"p", Array{"a", "b", Dictionary{{"k", "c"}}}}}));
}

TEST(CommandWords, KeepDictionaryWhenIndexesHaveGap) {
  const auto command = parseCommandWords({"x:command=c", "x:p:0=a", "x:p:2=b", "x:q:00=a"});
  EXPECT_EQ(command.arguments, (Dictionary{{"p", Dictionary{{"0", "a"}, {"2", "b"}}},
                                           {"q", Dictionary{{"00", "a"}}}}));
}

TEST(CommandWords, KeepRequestDictionaryForAnyKeys) {
  EXPECT_EQ(parseCommandWords({"x:command=c", "x:0=a"}).arguments, (Dictionary{{"0", "a"}}));
}

TEST(CommandWords, TreatCommandAsOperationOnlyAtTop) {
  EXPECT_EQ(parseCommandWords({"x:command=c", "x:a:command=d"}).arguments,
            (Dictionary{{"a", Dictionary{{"command", "d"}}}}));
}

TEST(CommandWords, OmitNullValues) {
  EXPECT_EQ(parseCommandWords({"x:command=c", "x:a=null"}).arguments, Dictionary{});
}

TEST(CommandWords, RejectWordsWithoutAssignment) {
  EXPECT_EQ(usageError({}), "expected KEY = VALUE");
  EXPECT_EQ(usageError({"x:command"}), "expected KEY = VALUE at \"x:command\"");
  EXPECT_EQ(usageError({"x:command", "="}), "a value is missing after \"x:command\"");
  EXPECT_EQ(usageError({"x:command", "c"}), "expected KEY = VALUE at \"x:command\"");
  EXPECT_EQ(usageError({"=c"}), "expected KEY = VALUE at \"=c\"");
}

TEST(CommandWords, RejectInvalidKeys) {
  for (const char* key : {"command", ":command", "x:", "x::a", "x:a:", ""}) {
    usageError({key, "=", "c"});
  }
  usageError({"x:\xFF", "=", "c"});
  std::string deep = "x";
  for (int part = 0; part < 64; ++part) deep += ":a";
  usageError({deep, "=", "c"});
}

TEST(CommandWords, RejectTwoPlugins) {
  EXPECT_EQ(usageError({"x:command=c", "y:a=b"}),
            "one call asks one plug-in: \"x\" and \"y\" are two");
}

TEST(CommandWords, RejectRequestWithoutOperation) {
  EXPECT_EQ(usageError({"x:a=b"}), "\"x:command\" must name the operation");
  for (const char* value : {"", "5", "null", "true"}) {
    EXPECT_EQ(usageError({"x:command", "=", value}), "\"x:command\" is no operation's name");
  }
  usageError({"x:command:a=b"});
}

TEST(CommandWords, RejectRepeatedOrContradictoryKeys) {
  EXPECT_EQ(usageError({"x:command=c", "x:a=1", "x:a=2"}), "\"x:a\" is given twice");
  EXPECT_EQ(usageError({"x:command=c", "x:a=1", "x:a:b=2"}),
            "\"x:a:b\" lies inside a key that has a value");
  EXPECT_EQ(usageError({"x:command=c", "x:a:b=2", "x:a=1"}), "\"x:a\" already holds other keys");
}

TEST(CommandValue, ParsesAsJsonScalarWhenPossible) {
  EXPECT_EQ(parseCommandValue("5"), Value(5));
  EXPECT_EQ(parseCommandValue("-1"), Value(-1));
  EXPECT_EQ(parseCommandValue("18446744073709551615"),
            Value(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_EQ(parseCommandValue("true"), Value(true));
  EXPECT_EQ(parseCommandValue("false"), Value(false));
  EXPECT_EQ(parseCommandValue("null"), Value());
  EXPECT_EQ(parseCommandValue("\"5\""), Value("5"));
  EXPECT_EQ(parseCommandValue("\"a\\nb\""), Value("a\nb"));
}

TEST(CommandValue, IsPlainTextOtherwise) {
  for (const char* text :
       {"", "abc", "/srv/a", "1.5", "1e3", "18446744073709551616", " 5", "5 ", "\"", "\"a",
        "a\"b\"", "[1]", "{}", "{\"$data\":\"Zg==\"}", "True", "yes", "05", "+5"}) {
    EXPECT_EQ(parseCommandValue(text), Value(text)) << text;
  }
}

TEST(CommandValue, MustBeUtf8) { EXPECT_THROW(parseCommandValue("\xFF"), Failure); }

}  // namespace
}  // namespace paddock::keelhouse
