#include "effectiveprivs/effectiveprivs_options.h"

#include <gmock/gmock.h>

namespace paddock::effectiveprivs {
namespace {

using Words = std::vector<std::string>;

std::optional<Options> read(const Words& words) {
  std::string fault;
  return readOptions(words, fault);
}

std::string faultOf(const Words& words) {
  std::string fault;
  EXPECT_FALSE(readOptions(words, fault));
  return fault;
}

TEST(Options, AreAPathAndAUid) {
  const auto options = read({"e", "-p", "/srv/a", "-u", "1000"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->path, "/srv/a");
  EXPECT_EQ(options->uid, 1000U);
  EXPECT_FALSE(options->explain);
  EXPECT_FALSE(options->json);
}

TEST(Options, MayComeInAnyOrder) {
  const auto options = read({"e", "--json", "-u", "7", "--explain", "-p", "x"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->uid, 7U);
  EXPECT_EQ(options->path, "x");
  EXPECT_TRUE(options->explain);
  EXPECT_TRUE(options->json);
}

TEST(Options, APathMayBeginWithADash) { EXPECT_EQ(read({"e", "-p", "-u", "-u", "1"})->path, "-u"); }

TEST(Options, EveryUnsignedNumberOf32BitsIsAUid) {
  EXPECT_EQ(read({"e", "-p", "/", "-u", "0"})->uid, 0U);
  EXPECT_EQ(read({"e", "-p", "/", "-u", "2147483648"})->uid, 2147483648U);
  EXPECT_EQ(read({"e", "-p", "/", "-u", "4294967295"})->uid, 4294967295U);
}

TEST(Options, NothingElseIsAUid) {
  for (const char* text : {"", "anna", "-1", "+1", " 1", "1 ", "0x1", "1.0", "4294967296",
                           "18446744073709551616", "99999999999999999999"})
    EXPECT_EQ(faultOf({"e", "-p", "/", "-u", text}), "\"" + std::string(text) + "\" is no uid");
}

TEST(Options, EverybodyNeedsNoUid) {
  const auto options = read({"e", "--who", "--json", "-p", "/srv/a"});
  ASSERT_TRUE(options);
  EXPECT_TRUE(options->who);
  EXPECT_TRUE(options->json);
  EXPECT_EQ(options->path, "/srv/a");
}

TEST(Options, HelpAndVersionNeedNothingElse) {
  EXPECT_TRUE(read({"e", "--help"})->help);
  EXPECT_TRUE(read({"e", "--version"})->version);
}

TEST(Options, SayWhatIsWrong) {
  EXPECT_EQ(faultOf({}), "no path is given");
  EXPECT_EQ(faultOf({"e"}), "no path is given");
  EXPECT_EQ(faultOf({"e", "-u", "1"}), "no path is given");
  EXPECT_EQ(faultOf({"e", "-p", "/"}), "no uid is given");
  EXPECT_EQ(faultOf({"e", "-p"}), "-p needs a path");
  EXPECT_EQ(faultOf({"e", "-p", "", "-u", "1"}), "-p needs a path");
  EXPECT_EQ(faultOf({"e", "-p", "/", "-u"}), "-u needs a uid");
  EXPECT_EQ(faultOf({"e", "-p", "/", "-p", "/"}), "more than one path is given");
  EXPECT_EQ(faultOf({"e", "-u", "1", "-u", "1"}), "more than one uid is given");
  EXPECT_EQ(faultOf({"e", "-p", "/", "-u", "1", "--json"}), "--json is for --explain and --who");
  EXPECT_EQ(faultOf({"e", "--who", "-p", "/", "-u", "1"}),
            "--who is about everybody, and takes no -u");
  EXPECT_EQ(faultOf({"e", "--who", "-p", "/", "--explain"}), "--who explains by itself");
  EXPECT_EQ(faultOf({"e", "/srv"}), "\"/srv\" is no option");
}

}  // namespace
}  // namespace paddock::effectiveprivs
