#include "synchronize-shares/share_selection.h"

#include <gmock/gmock.h>

namespace paddock::synchronizer {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> namesOf(const ShareSelection& selection) {
  std::vector<std::string> names;
  for (const SharePoint* share : selection.published) names.push_back(share->nameOverSMB);
  return names;
}

TEST(SelectShares, GoodOnesArePublishedInTheirOrder) {
  const std::vector<SharePoint> all{{"b", "/srv/b", "B"}, {"a", "/srv/a", "A"}};
  const ShareSelection selection = selectShares(all);
  EXPECT_THAT(namesOf(selection), ElementsAre("B", "A"));
  EXPECT_THAT(selection.leftOut, IsEmpty());
}

TEST(SelectShares, BadNameIsSkippedAndRestStays) {
  const std::vector<SharePoint> all{{"a", "/srv/a", "homes"}, {"b", "/srv/b", "b"}};
  const ShareSelection selection = selectShares(all);
  EXPECT_THAT(namesOf(selection), ElementsAre("b"));
  EXPECT_THAT(
      selection.leftOut,
      ElementsAre("share point \"a\" is left out of SMB: its name over SMB, \"homes\", is one "
                  "that Samba keeps for itself"));
}

SharePoint withParameter(const std::string& name, const samba::Parameter& parameter) {
  SharePoint share{name, "/srv/" + name, name};
  share.smb.options.parameters = {parameter};
  return share;
}

TEST(SelectShares, InvalidOptionsSkipShare) {
  SharePoint unreadable{"c", "/srv/c", "c"};
  unreadable.smb.fault = "it cannot be read";
  const std::vector<SharePoint> all{withParameter("a", {"root preexec", "/bin/true"}),
                                    withParameter("b", {"max connections", "5"}), unreadable};
  const ShareSelection selection = selectShares(all);
  EXPECT_THAT(namesOf(selection), ElementsAre("b"));
  EXPECT_THAT(
      selection.leftOut,
      ElementsAre("share point \"a\" is left out of SMB: its options over SMB: \"root "
                  "preexec\" runs a program",
                  "share point \"c\" is left out of SMB: its options over SMB: it cannot be "
                  "read"));
}

TEST(SelectShares, ParametersRejectedBySambaSkipShare) {
  const std::vector<SharePoint> all{withParameter("a", {"oplocks", "perhaps"}),
                                    withParameter("b", {"oplocks", "no"}),
                                    {"c", "/srv/c", "c"}};
  int asked = 0;
  const ShareSelection selection = selectShares(all, [&asked](const std::string& lines) {
    ++asked;
    return lines == "    oplocks = perhaps\n" ? "perhaps is not boolean" : "";
  });
  EXPECT_THAT(namesOf(selection), ElementsAre("b", "c"));
  EXPECT_THAT(selection.leftOut,
              ElementsAre("share point \"a\" is left out of SMB: Samba does not take its options: "
                          "perhaps is not boolean"));
  EXPECT_EQ(asked, 2);
}

TEST(SelectShares, UnwritablePathIsSkipped) {
  const std::vector<SharePoint> all{{"a", "/srv/%U", "a"}, {"b", "/srv/b", "b"}};
  const ShareSelection selection = selectShares(all);
  EXPECT_THAT(namesOf(selection), ElementsAre("b"));
  EXPECT_THAT(
      selection.leftOut,
      ElementsAre("share point \"a\" is left out of SMB: its path, \"/srv/%U\", has a percent "
                  "sign that Samba reads as a variable"));
}

TEST(SelectShares, MissingOrRelativePathIsSkipped) {
  const std::vector<SharePoint> all{{"a", "", "a"}, {"b", "srv/b", "b"}};
  const ShareSelection selection = selectShares(all);
  EXPECT_THAT(namesOf(selection), IsEmpty());
  EXPECT_THAT(
      selection.leftOut,
      ElementsAre("share point \"a\" is left out of SMB: its path, \"\", is not absolute",
                  "share point \"b\" is left out of SMB: its path, \"srv/b\", is not absolute"));
}

TEST(SelectShares, DuplicateNameIsSkippedIgnoringLetterCase) {
  const std::vector<SharePoint> all{{"one", "/1", "Plans"},
                                    {"two", "/2", "PLANS"},
                                    {"three", "/3", "Pläne"},
                                    {"four", "/4", "PLÄNE"}};
  const ShareSelection selection = selectShares(all);
  EXPECT_THAT(namesOf(selection), ElementsAre("Plans", "Pläne"));
  EXPECT_THAT(
      selection.leftOut,
      ElementsAre("share point \"two\" is left out of SMB: its name over SMB, \"PLANS\", is "
                  "that of share point \"one\"",
                  "share point \"four\" is left out of SMB: its name over SMB, \"PLÄNE\", is "
                  "that of share point \"three\""));
}

TEST(SelectShares, OneThatIsLeftOutTakesNoName) {
  const std::vector<SharePoint> all{{"one", "not absolute", "Plans"}, {"two", "/2", "plans"}};
  EXPECT_THAT(namesOf(selectShares(all)), ElementsAre("plans"));
}

}  // namespace
}  // namespace paddock::synchronizer
