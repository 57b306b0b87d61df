#include "copyprivs/copyprivs_options.h"

#include <gtest/gtest.h>

namespace paddock::copyprivs {
namespace {

std::string faultOf(std::vector<std::string> words) {
  Options options;
  words.insert(words.begin(), "copyprivs");
  return readOptions(words, options);
}

TEST(Options, AreReadAsTheModulePassesThem) {
  Options options;
  EXPECT_EQ(readOptions({"CopyPrivs", "-p", "/srv/a", "-f", "33", "-s", "/tmp/status"}, options),
            "");
  EXPECT_EQ(options.folder, "/srv/a");
  EXPECT_EQ(options.mask, 33U);
  EXPECT_EQ(options.statusFile, "/tmp/status");
  EXPECT_FALSE(options.dryRun);
}

TEST(Options, ADryRunIsAskedFor) {
  Options options;
  EXPECT_EQ(readOptions({"copyprivs", "-n", "-p", "a", "-f", "0", "-s", "b"}, options), "");
  EXPECT_TRUE(options.dryRun);
}

TEST(Options, LinksAreLeftOutWhenAskedFor) {
  Options options;
  EXPECT_EQ(readOptions({"copyprivs", "-p", "a", "-f", "0", "-s", "b"}, options), "");
  EXPECT_FALSE(options.leavesLinks);
  EXPECT_EQ(readOptions({"copyprivs", "-l", "-p", "a", "-f", "0", "-s", "b"}, options), "");
  EXPECT_TRUE(options.leavesLinks);
}

TEST(Options, EachOfTheThreeIsNeeded) {
  EXPECT_EQ(faultOf({"-f", "1", "-s", "s"}), "no folder is given");
  EXPECT_EQ(faultOf({"-p", "p", "-s", "s"}), "no mask is given");
  EXPECT_EQ(faultOf({"-p", "p", "-f", "1"}), "no status file is given");
}

TEST(Options, OptionRequiresNonEmptyArgument) {
  EXPECT_EQ(faultOf({"-f", "1", "-s", "s", "-p"}), "-p needs an argument");
  EXPECT_EQ(faultOf({"-p", "", "-f", "1", "-s", "s"}), "-p needs an argument");
}

TEST(Options, AnOptionIsGivenOnce) {
  EXPECT_EQ(faultOf({"-p", "a", "-p", "b", "-f", "1", "-s", "s"}), "-p is given twice");
}

TEST(Options, WhatIsNoOptionIsNamed) {
  EXPECT_EQ(faultOf({"-p", "a", "-f", "1", "-s", "s", "more"}), "\"more\" is no option");
}

TEST(Options, AMaskIsADecimalNumber) {
  for (const char* mask : {"x", "1x", "-1", "+1", "0x1", " 1", "99999999999", "1.5"}) {
    EXPECT_EQ(faultOf({"-p", "p", "-f", mask, "-s", "s"}),
              "the mask \"" + std::string(mask) + "\" is no number");
  }
}

TEST(Options, AMaskHasKnownBitsAlone) {
  for (const char* mask : {"64", "65", "4294967295"}) {
    EXPECT_EQ(faultOf({"-p", "p", "-f", mask, "-s", "s"}),
              "the mask " + std::string(mask) +
                  " has unknown bits; it is a sum of 1, 2, 4, 8, 16 and 32");
  }
  EXPECT_EQ(faultOf({"-p", "p", "-f", "63", "-s", "s"}), "");
  EXPECT_EQ(faultOf({"-p", "p", "-f", "0", "-s", "s"}), "");
}

TEST(Options, StatusFileIsKnownDespiteOtherErrors) {
  Options options;
  EXPECT_NE(readOptions({"copyprivs", "-z", "-f", "x", "-s", "/tmp/status"}, options), "");
  EXPECT_EQ(options.statusFile, "/tmp/status");
}

TEST(Options, HelpAndVersionNeedNothingElse) {
  Options options;
  EXPECT_EQ(readOptions({"copyprivs", "--help"}, options), "");
  EXPECT_TRUE(options.help);
  EXPECT_EQ(readOptions({"copyprivs", "--version"}, options), "");
  EXPECT_TRUE(options.version);
}

}  // namespace
}  // namespace paddock::copyprivs
