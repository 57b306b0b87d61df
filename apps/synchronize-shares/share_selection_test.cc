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

TEST(SelectShares, ABadNameIsLeftOutAndTheRestStays) {
  const std::vector<SharePoint> all{{"a", "/srv/a", "homes"}, {"b", "/srv/b", "b"}};
  const ShareSelection selection = selectShares(all);
  EXPECT_THAT(namesOf(selection), ElementsAre("b"));
  EXPECT_THAT(
      selection.leftOut,
      ElementsAre("share point \"a\" is left out of SMB: its name over SMB, \"homes\", is one "
                  "that Samba keeps for itself"));
}

TEST(SelectShares, APathThatCannotBeWrittenIsLeftOut) {
  const std::vector<SharePoint> all{{"a", "/srv/%U", "a"}, {"b", "/srv/b", "b"}};
  const ShareSelection selection = selectShares(all);
  EXPECT_THAT(namesOf(selection), ElementsAre("b"));
  EXPECT_THAT(
      selection.leftOut,
      ElementsAre("share point \"a\" is left out of SMB: its path, \"/srv/%U\", has a percent "
                  "sign that Samba reads as a variable"));
}

TEST(SelectShares, APathThatIsMissingOrNotAbsoluteIsLeftOut) {
  const std::vector<SharePoint> all{{"a", "", "a"}, {"b", "srv/b", "b"}};
  const ShareSelection selection = selectShares(all);
  EXPECT_THAT(namesOf(selection), IsEmpty());
  EXPECT_THAT(
      selection.leftOut,
      ElementsAre("share point \"a\" is left out of SMB: its path, \"\", is not absolute",
                  "share point \"b\" is left out of SMB: its path, \"srv/b\", is not absolute"));
}

TEST(SelectShares, TheSecondUseOfANameIsLeftOutInAnyLetterCase) {
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
