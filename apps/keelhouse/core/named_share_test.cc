#include "keelhouse/core/named_share.h"

#include "keelhouse/core/failure.h"
#include "keelhouse/core/share_path.h"
#include "support/keelhouse_session.h"

#include <gmock/gmock.h>

namespace paddock::keelhouse {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

Dictionary share(const std::string& path, const std::string& name, const std::string& smb = {}) {
  Dictionary sharePoint{{"path", path}, {"name", name}};
  if (!smb.empty()) sharePoint.set("nameOverSMB", smb);
  return sharePoint;
}

const Array kShares{share("/srv/a", "photos", "Pictures"), share("/srv/b", "plans", "PHOTOS"),
                    share("/srv/c", "Überblick", "über"), Value("no share point"), Dictionary{}};

std::string found(const std::string& word, const Array& shares = kShares) {
  return findNamedShare(shares, word, "/here/" + word, false).path;
}

template <typename Call>
std::string refusal(Call call) {
  try {
    call();
  } catch (const Failure& failed) {
    EXPECT_EQ(failed.status(), ExitStatus::failed);
    return failed.what();
  }
  ADD_FAILURE() << "not refused";
  return {};
}

TEST(NamedShare, IsFoundByRecordNameAndSmbName) {
  EXPECT_EQ(found("plans"), "/srv/b");
  EXPECT_EQ(found("Pictures"), "/srv/a");
  EXPECT_EQ(found("pictures"), "/srv/a");
  EXPECT_EQ(found("PLANS"), "/srv/b");
  EXPECT_EQ(found("überblick"), "/srv/c");
  EXPECT_EQ(found("ÜBER"), "/srv/c");
}

TEST(NamedShare, RecordNamePrecedesSmbNameWithNote) {
  const NamedFolder named = findNamedShare(kShares, "photos", "/here/photos", false);
  EXPECT_EQ(named.path, "/srv/a");
  EXPECT_EQ(
      named.note,
      "\"photos\" is taken as the share /srv/a, whose record has the name; /srv/b has it over "
      "SMB");
}

TEST(NamedShare, ExactNamePrecedesOtherCase) {
  const Array shares{share("/srv/a", "Plans"), share("/srv/b", "plans")};
  EXPECT_EQ(found("Plans", shares), "/srv/a");
  EXPECT_EQ(found("plans", shares), "/srv/b");
  EXPECT_EQ(refusal([&] { found("PLANS", shares); }),
            "\"PLANS\" is the name of 2 shares; say which by its path:\n  /srv/a\n  /srv/b");
}

TEST(NamedShare, TwoSharesWithSameSmbNameAreAmbiguous) {
  const Array shares{share("/srv/a", "a", "Plans"), share("/srv/b", "b", "plans")};
  EXPECT_THAT(refusal([&] { found("plans", shares); }),
              AllOf(HasSubstr("2 shares"), HasSubstr("\n  /srv/a\n  /srv/b")));
}

TEST(NamedShare, TwoRecordsOfOneFolderAreNot) {
  EXPECT_EQ(found("plans", {share("/srv/a", "plans"), share("/srv/a", "Plans", "plans")}),
            "/srv/a");
}

TEST(NamedShare, UnknownNameSuggestsNearestMatch) {
  EXPECT_EQ(refusal([] { found("photo"); }),
            "there is no share \"photo\", and no such file or folder here: did you mean photos?\n"
            "See the shares: keelhouse share list");
  EXPECT_THAT(refusal([] { found("picturs"); }), HasSubstr(": did you mean Pictures?\n"));
  EXPECT_EQ(refusal([] { found("zzz"); }),
            "there is no share \"zzz\", and no such file or folder here\n"
            "See the shares: keelhouse share list");
}

TEST(NamedShare, ExistingPathPrecedesShareNameWithNote) {
  const NamedFolder named = findNamedShare(kShares, "plans", "/here/plans", true);
  EXPECT_EQ(named.path, "");
  EXPECT_EQ(named.note,
            "\"plans\" is taken as /here/plans, which is there; the share of that name is /srv/b");
  EXPECT_EQ(findNamedShare(kShares, "plans", "/srv/b", true).note, "");
  EXPECT_EQ(findNamedShare(kShares, "other", "/here/other", true).note, "");
}

class FolderPath : public SessionFixture {
 protected:
  void answerShares() {
    daemon_.answer(R"({"sharePointList":[{"path":"/srv/a","name":"photos"}],"readStatus":0})");
  }
};

TEST_F(FolderPath, OfWordWithSlashNeedsNoRequest) {
  EXPECT_EQ(folderPath(session_, "/srv/../a"), "/a");
  EXPECT_EQ(folderPath(session_, "./photos"), absolutePath("photos"));
  EXPECT_EQ(folderPath(session_, "."), absolutePath("."));
  EXPECT_TRUE(daemon_.requests().empty());
}

TEST_F(FolderPath, OfANameIsThatOfTheShare) {
  answerShares();
  EXPECT_EQ(folderPath(session_, "Photos"), "/srv/a");
  EXPECT_EQ(notes_.str(), "");
  EXPECT_EQ(daemon_.requests().at(0).target, "POST /v1/paddock_sharing/getSharePointList");
}

TEST_F(FolderPath, OnServerWithoutSharesIsNotFound) {
  daemon_.answer(R"({"readStatus":0})");
  EXPECT_THAT(refusal([this] { folderPath(session_, "photos"); }),
              HasSubstr("there is no share \"photos\""));
}

TEST_F(FolderPath, FailedNameLookupFails) {
  daemon_.answer(R"({"readStatus":100075})");
  EXPECT_THAT(refusal([this] { folderPath(session_, "photos"); }),
              HasSubstr("the names of the shares cannot be read"));
}

TEST_F(FolderPath, OfWhatIsNoPathIsRefused) {
  EXPECT_THROW(folderPath(session_, ""), Failure);
  EXPECT_THROW(folderPath(session_, "a\xFF"), Failure);
}

}  // namespace
}  // namespace paddock::keelhouse
