#include "frame/program_frame.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace paddock::frame {
namespace {

using Words = std::vector<std::string>;

TEST(OptionWords, NameIsNoWordOfItsOwn) {
  const Words words{"name", "-a", "b"};
  std::string fault;
  OptionWords taken(words, fault);
  EXPECT_EQ(*taken.next(), "-a");
  EXPECT_EQ(*taken.next(), "b");
  EXPECT_EQ(taken.next(), nullptr);
}

TEST(OptionWords, EmptyArgumentIsNoneAndStays) {
  const Words words{"name", "", "b"};
  std::string fault;
  OptionWords taken(words, fault);
  EXPECT_EQ(taken.nextArgument(), nullptr);
  EXPECT_EQ(*taken.next(), "");
  EXPECT_EQ(*taken.nextArgument(), "b");
  EXPECT_EQ(taken.nextArgument(), nullptr);
}

TEST(OptionWords, EmptyArgumentVectorHasNone) {
  const Words words;
  std::string fault;
  OptionWords taken(words, fault);
  EXPECT_EQ(taken.next(), nullptr);
  EXPECT_EQ(taken.nextArgument(), nullptr);
}

TEST(OptionWords, HelpAndVersionAreAsked) {
  const Words words;
  std::string fault;
  OptionWords taken(words, fault);
  Asked help;
  EXPECT_TRUE(taken.readAsked("--help", help));
  EXPECT_TRUE(help.help && help.isAny() && !help.version);
  Asked version;
  EXPECT_TRUE(taken.readAsked("--version", version));
  EXPECT_TRUE(version.version && version.isAny() && !version.help);
  EXPECT_EQ(fault, "");
}

TEST(OptionWords, FirstFaultIsKept) {
  const Words words;
  std::string fault;
  OptionWords taken(words, fault);
  Asked asked;
  EXPECT_FALSE(taken.readAsked("-x", asked));
  EXPECT_FALSE(taken.fail("another"));
  EXPECT_EQ(fault, "\"-x\" is no option");
  EXPECT_FALSE(asked.isAny());
}

class ProgramRunOutput : public ::testing::Test {
 protected:
  std::ostringstream out_;
  std::ostringstream error_;
  const ProgramRun run_{"counter", "usage: counter", out_, error_};
};

TEST_F(ProgramRunOutput, HelpIsUsageAndVersionBeginsWithName) {
  EXPECT_EQ(run_.describe({.help = true, .version = true}), 0);
  EXPECT_EQ(out_.str(), "usage: counter\n");
  out_.str("");
  EXPECT_EQ(run_.describe({.version = true}), 0);
  EXPECT_EQ(out_.str().substr(0, 8), "counter ");
  EXPECT_EQ(error_.str(), "");
}

TEST_F(ProgramRunOutput, UnusableWordsAreAnsweredWithUsage) {
  EXPECT_EQ(run_.refuse("\"\x1b[2J\" is no option"), 2);
  EXPECT_EQ(error_.str().find('\x1b'), std::string::npos);
  EXPECT_EQ(error_.str().substr(0, 10), "counter: \"");
  EXPECT_EQ(error_.str().substr(error_.str().find('\n')), "\nusage: counter\n");
  EXPECT_EQ(out_.str(), "");
}

TEST_F(ProgramRunOutput, PrintingFailsWithStandardOutput) {
  EXPECT_EQ(run_.print("17\n", 4), 4);
  EXPECT_EQ(out_.str(), "17\n");
  out_.setstate(std::ios::badbit);
  EXPECT_EQ(run_.print("18\n", 0), 1);
  EXPECT_EQ(error_.str(), "counter: standard output cannot be written\n");
}

TEST_F(ProgramRunOutput, ExceptionEndsRunWithItsText) {
  EXPECT_EQ(run_.attempt([] { return 4; }), 4);
  EXPECT_EQ(error_.str(), "");
  EXPECT_EQ(run_.attempt([]() -> int { throw std::runtime_error("no volume"); }), 1);
  EXPECT_EQ(error_.str(), "counter: no volume\n");
}

}  // namespace
}  // namespace paddock::frame
