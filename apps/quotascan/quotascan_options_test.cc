#include "quotascan/quotascan_options.h"

#include <gmock/gmock.h>

namespace paddock::quotascan {
namespace {

using ::testing::HasSubstr;

std::optional<Options> read(const std::vector<std::string>& words) {
  std::string fault;
  return readOptions(words, fault);
}

std::string faultOf(const std::vector<std::string>& words) {
  std::string fault;
  EXPECT_FALSE(readOptions(words, fault));
  return fault;
}

TEST(Options, ModuleArgumentsStartWithOptionAndVolume) {
  const auto options = read({"-u", "/vol"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->volume, "/vol");
  EXPECT_FALSE(options->byHand);
}

TEST(Options, ByHandTheVolumeStandsBehindTheOption) {
  const auto options = read({"quotascan", "-u", "/vol"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->volume, "/vol");
  EXPECT_TRUE(options->byHand);
  EXPECT_FALSE(options->json);
}

TEST(Options, JsonOptionMayPrecedeOrFollowVolume) {
  for (const auto& words : {std::vector<std::string>{"q", "--json", "-u", "v"},
                            std::vector<std::string>{"q", "-u", "v", "--json"}}) {
    const auto options = read(words);
    ASSERT_TRUE(options);
    EXPECT_TRUE(options->json);
    EXPECT_EQ(options->volume, "v");
  }
}

TEST(Options, KernelOptionQueriesKernelOnly) {
  EXPECT_TRUE(read({"q", "--kernel", "-u", "v"})->kernelAlone);
  EXPECT_FALSE(read({"q", "-u", "v"})->kernelAlone);
  EXPECT_FALSE(read({"-u", "v"})->kernelAlone);
}

TEST(Options, AVolumeMayBeginWithADash) { EXPECT_EQ(read({"q", "-u", "-v"})->volume, "-v"); }

TEST(Options, HelpAndVersionNeedNoVolume) {
  EXPECT_TRUE(read({"q", "--help"})->help);
  EXPECT_TRUE(read({"q", "--version"})->version);
}

TEST(Options, SayWhatIsWrong) {
  EXPECT_EQ(faultOf({}), "no volume is given");
  EXPECT_EQ(faultOf({"q"}), "no volume is given");
  EXPECT_EQ(faultOf({"-u"}), "no volume is given");
  EXPECT_EQ(faultOf({"q", "-u"}), "-u needs a volume");
  EXPECT_EQ(faultOf({"q", "-u", ""}), "-u needs a volume");
  EXPECT_EQ(faultOf({"-u", ""}), "\"\" is no option");
  EXPECT_EQ(faultOf({"q", "/vol"}), "\"/vol\" is no option");
  EXPECT_EQ(faultOf({"q", "-u", "/a", "-u", "/b"}), "more than one volume is given");
  EXPECT_THAT(faultOf({"q", "-g", "/vol"}), HasSubstr("\"-g\""));
}

}  // namespace
}  // namespace paddock::quotascan
