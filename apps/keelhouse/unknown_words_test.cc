// Messages about unknown commands and options, and `keelhouse help`.
#include "keelhouse/unknown_words.h"

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class UnknownWords : public CommandFixture {
 protected:
  // The first line on standard error of a usage error before anything was asked.
  std::string refusal(const std::vector<std::string>& words) {
    EXPECT_EQ(run(words), 2) << error_;
    EXPECT_EQ(out_, "");
    EXPECT_EQ(asked(), 0U);
    EXPECT_THAT(error_, HasSubstr("\nSee keelhouse help, and keelhouse(8).\n"));
    return error_.substr(0, error_.find('\n'));
  }
};

TEST_F(UnknownWords, AreAnsweredWithTheNearestCommand) {
  EXPECT_EQ(refusal({"shre"}), "keelhouse: there is no command \"shre\": did you mean share?");
  EXPECT_EQ(refusal({"shre", "list"}),
            "keelhouse: there is no command \"shre\": did you mean share?");
  EXPECT_EQ(refusal({"--json", "propergate", "/srv/a"}),
            "keelhouse: there is no command \"propergate\": did you mean propagate?");
  EXPECT_EQ(refusal({"share", "shwo", "/srv/a"}),
            "keelhouse: there is no command \"share shwo\": did you mean share show?");
  EXPECT_EQ(refusal({"frobnicate"}), "keelhouse: there is no command \"frobnicate\"");
}

TEST_F(UnknownWords, AreAnsweredWithTheNearestOption) {
  EXPECT_EQ(refusal({"share", "add", "/srv/a", "--smbname", "x"}),
            "keelhouse: share add has no option --smbname: did you mean --smb-name?");
  EXPECT_EQ(refusal({"share", "set", "/srv/a", "--nfs", "*(ro)", "--no-nsf"}),
            "keelhouse: share set has no option --no-nsf: did you mean --no-nfs?");
  EXPECT_EQ(refusal({"--jsno", "share", "list"}),
            "keelhouse: there is no option --jsno: did you mean --json?");
  EXPECT_EQ(refusal({"share", "add", "/srv/a", "--zzzzz=1"}),
            "keelhouse: share add has no option --zzzzz");
}

TEST_F(UnknownWords, AreNotLookedForInValues) {
  EXPECT_THAT(refusal({"share", "add", "--smb-name", "shre"}),
              AllOf(HasSubstr("PATH"), Not(HasSubstr("shre"))));
  EXPECT_THAT(refusal({"share"}), Not(HasSubstr("there is no")));
}

TEST_F(UnknownWords, WithControlCharactersAreShownEscaped) {
  EXPECT_THAT(refusal({"\x1B[31m"}), AllOf(HasSubstr("\\x1B[31m"), Not(HasSubstr("\x1B"))));
}

TEST_F(UnknownWords, OfHelpAreAnsweredToo) {
  EXPECT_EQ(run({"help", "share", "ad"}), 2);
  EXPECT_EQ(error_, "keelhouse: there is no command \"share ad\": did you mean share add?\n");
}

TEST_F(UnknownWords, HelpSaysWhatTheCommandsOwnHelpSays) {
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{}, {"share"}, {"share", "list"}, {"status"}, {"command"}}) {
    std::vector<std::string> words = command;
    words.emplace_back("--help");
    ASSERT_EQ(runAsIs(words), 0);
    const std::string own = out_;
    words.assign({"help"});
    words.insert(words.end(), command.begin(), command.end());
    EXPECT_EQ(runAsIs(words), 0);
    EXPECT_EQ(out_, own);
    EXPECT_EQ(error_, "");
  }
  EXPECT_EQ(asked(), 0U);
}

TEST_F(UnknownWords, HelpOnCommandListsArgumentsAndOptions) {
  EXPECT_EQ(runAsIs({"help", "share", "set"}), 0);
  EXPECT_THAT(out_, AllOf(HasSubstr("keelhouse share set"), HasSubstr("--smb-name")));
}

}  // namespace
}  // namespace paddock::keelhouse
