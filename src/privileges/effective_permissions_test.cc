#include "privileges/effective_permissions.h"

#include <gtest/gtest.h>

#include "privileges/bundle_programs.h"
#include "support/privileges_fixture.h"

namespace paddock {
namespace {

constexpr const char* kProgram =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs";
constexpr std::int32_t kBefore = 77;

class EffectivePermissions : public PrivilegesFixture {
 protected:
  Status get(const ProgramOutcome& outcome, std::uint32_t uid = 501) {
    programs.setOutcome(kProgram, outcome);
    result = kBefore;
    return get_effective_permissions("/srv/a b", uid, result);
  }
  static ProgramOutcome printing(const std::string& output, const std::string& error = "") {
    ProgramOutcome outcome;
    outcome.output = output;
    outcome.errorOutput = error;
    return outcome;
  }

  std::int32_t result = kBefore;
};

TEST_F(EffectivePermissions, AreWhatTheProgramOfTheBundlePrints) {
  EXPECT_EQ(get(printing("142\n")), kSuccess);
  EXPECT_EQ(result, 142);
  ASSERT_EQ(programs.runs().size(), 1U);
  EXPECT_EQ(programs.runs().front().path, kProgram);
  EXPECT_EQ(programs.runs().front().arguments,
            (std::vector<std::string>{"-p", "/srv/a b", "-u", "501"}));
}

TEST_F(EffectivePermissions, AUserIdIsPassedUnsigned) {
  get(printing("0"), 0xFFFFFFFF);
  get(printing("0"), 0x80000000);
  EXPECT_EQ(programs.runs()[0].arguments[3], "4294967295");
  EXPECT_EQ(programs.runs()[1].arguments[3], "2147483648");
}

TEST_F(EffectivePermissions, AreReadAsALeadingNumber) {
  const std::vector<std::pair<const char*, std::int32_t>> cases = {
      {"  6\n", 6},       {"", 0},
      {"x7", 0},          {"\t-5", -5},
      {"+9 and more", 9}, {"99999999999", 2147483647}};
  for (const auto& [text, number] : cases) {
    EXPECT_EQ(get(printing(text)), kSuccess);
    EXPECT_EQ(result, number) << text;
  }
}

TEST_F(EffectivePermissions, AMissingProgramIsLogged) {
  programs.setMissing(kEffectivePrivsPath);
  EXPECT_EQ(get(printing("6")), -1);
  EXPECT_EQ(result, kBefore);
  EXPECT_TRUE(programs.runs().empty());
  expectErrors("get_effective_permissions",
               {std::string("Cannot get effective permissions because ") + kProgram +
                " executable is missing"});
}

TEST_F(EffectivePermissions, AProgramThatCannotBeRunGivesItsStatus) {
  ProgramOutcome outcome = printing("6", "x");
  outcome.status = ETIMEDOUT;
  EXPECT_EQ(get(outcome), ETIMEDOUT);
  EXPECT_EQ(result, kBefore);
}

TEST_F(EffectivePermissions, AnythingOnStandardErrorIsAFailure) {
  EXPECT_EQ(get(printing("6", "\n")), -1);
  EXPECT_EQ(result, kBefore);
}

}  // namespace
}  // namespace paddock
