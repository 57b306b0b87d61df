#include "paddock_denials/group_denials.h"

#include <gmock/gmock.h>

#include "paddock_denials/listed_entries.h"
#include "paddock_denials/strict_lists.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kCrew = 100;
constexpr std::uint32_t kNight = 200;
constexpr acl::Permission kRead = acl::kReadData | acl::kExecute;

using Kind = acl::Subject::Kind;

const Person kAnna{1001, "anna", {kCrew, kNight, 1001}};
const Person kBert{1002, "bert", {kNight, 1002}};
const Person kDora{1004, "dora", {kCrew, kNight, 1004}};

acl::Rule allowCrew(acl::Flag flags = 0) { return {true, {Kind::group, kCrew}, kRead, flags}; }
acl::Rule denyNight(acl::Flag flags = 0) { return {false, {Kind::group, kNight}, kRead, flags}; }
acl::Rule denyUser(const Person& person) { return {false, {Kind::user, person.uid}, kRead, 0}; }

// A folder of root's with mode 700 to which the kernel grants the crew access.
KernelSide crewsFolder() {
  KernelSide kernel;
  kernel.access.classes = {7, 0, 0};
  kernel.access.groups = {{kCrew, 5}};
  kernel.access.mask = 7;
  return kernel;
}

std::vector<Person> members(std::uint32_t gid) {
  return gid == kNight ? std::vector<Person>{kAnna, kBert, kDora} : std::vector<Person>{};
}

std::vector<std::string> namesOf(const std::vector<GroupDenial>& denials) {
  std::vector<std::string> names;
  for (const GroupDenial& denial : denials) {
    for (const Person& person : denial.letIn) names.push_back(person.name);
  }
  return names;
}
std::vector<std::string> passers(const std::vector<acl::Rule>& entries,
                                 const KernelSide& kernel = crewsFolder()) {
  return namesOf(passedDenials(entries, kernel, members));
}

TEST(GroupDenials, AreBypassedThroughAnotherGroup) {
  const auto denials = passedDenials({denyNight(), allowCrew()}, crewsFolder(), members);
  ASSERT_EQ(denials.size(), 1U);
  EXPECT_EQ(denials[0].entry, 0U);
  EXPECT_EQ(denials[0].gid, kNight);
  EXPECT_THAT(namesOf(denials), ElementsAre("anna", "dora"));
}

TEST(GroupDenials, ExcludeUsersDecidedByEarlierEntry) {
  EXPECT_THAT(passers({allowCrew(), denyNight()}), IsEmpty());
  EXPECT_THAT(passers({denyUser(kAnna), denyNight(), allowCrew()}), ElementsAre("dora"));
  const acl::Rule everyone{true, {Kind::everyone, 0}, kRead, 0};
  EXPECT_THAT(passers({everyone, denyNight()}), IsEmpty());
}

TEST(GroupDenials, CountByTheBitsThatTheKernelHas) {
  acl::Rule other = denyNight();
  other.permissions = acl::kDelete | acl::kWriteAttributes;
  EXPECT_THAT(passers({other, allowCrew()}), IsEmpty());
  other.permissions = acl::kWriteData;
  EXPECT_THAT(passers({other, allowCrew()}), IsEmpty()) << "the crew cannot write";
  other.permissions = acl::kWriteData | acl::kReadData;
  EXPECT_THAT(passers({other, allowCrew()}), ElementsAre("anna", "dora"));
}

TEST(GroupDenials, ArePassedByTheModeOfOthersToo) {
  KernelSide open;
  open.access.classes = {7, 0, 5};
  EXPECT_THAT(passers({denyNight()}, open), ElementsAre("anna", "bert", "dora"));
  open.access.groups = {{kNight, 0}};
  open.access.mask = 5;
  EXPECT_THAT(passers({denyNight()}, open), IsEmpty()) << "who is in a group is none of the others";
}

TEST(GroupDenials, OfTheOwnerAreTheModesAffair) {
  KernelSide kernel = crewsFolder();
  kernel.owner = kAnna.uid;
  const auto denials = passedDenials({denyNight(), allowCrew()}, kernel, members);
  ASSERT_EQ(denials.size(), 1U);
  EXPECT_THAT(namesOf(denials), ElementsAre("dora"));
  ASSERT_TRUE(denials[0].owner);
  EXPECT_EQ(denials[0].owner->name, "anna");
}

TEST(GroupDenials, ApplyToInheritedEntriesToo) {
  KernelSide kernel = crewsFolder();
  kernel.access.groups.clear();
  kernel.inherited = crewsFolder().access;
  constexpr acl::Flag kInside = acl::kFileInherit | acl::kDirectoryInherit;
  EXPECT_THAT(passers({denyNight(), allowCrew()}, kernel), IsEmpty());
  EXPECT_THAT(passers({denyNight(kInside), allowCrew(kInside)}, kernel),
              ElementsAre("anna", "dora"));
  EXPECT_THAT(passers({denyNight(kInside | acl::kOnlyInherit), allowCrew(kInside)}, kernel),
              ElementsAre("anna", "dora"));
}

// The list [deny night, allow crew] as the module carries it, with denials of users before the
// first.
class StrictLists : public ::testing::Test {
 protected:
  void nameBefore(const Person& person) {
    entries_.insert(entries_.begin() + static_cast<std::ptrdiff_t>(named_), denyUser(person));
    acl_.insert(acl_.begin() + static_cast<std::ptrdiff_t>(named_++), form(person.name, false));
  }
  static Value form(const std::string& guid, bool allow) {
    return Dictionary{
        {"guid", guid},    {"displayName", guid}, {"allowPermission", allow ? "YES" : "NO"},
        {"bitmap", kRead}, {"flags", 0},          {"isUser", 1}};
  }
  StrictList strict(const KernelSide& kernel, const WrittenDenials& written = {}) {
    return strictList(acl_, entries_, kernel, members, written);
  }
  static std::vector<std::string> whoIn(const StrictList& list) {
    std::vector<std::string> who;
    for (const Value& value : list.acl) {
      const Dictionary& one = *value.dictionary();
      const std::string* guid = one.string("guid");
      who.push_back(guid != nullptr ? *guid : std::to_string(*one.integer("uniqueID")));
    }
    return who;
  }

  std::vector<acl::Rule> entries_{denyNight(), allowCrew()};
  Array acl_{form("night", false), form("crew", true)};
  std::size_t named_ = 0;
};

TEST_F(StrictLists, NameWhoIsLetInBeforeTheGroup) {
  const StrictList list = strict(crewsFolder());
  EXPECT_TRUE(list.isChanged);
  EXPECT_THAT(whoIn(list), ElementsAre("1001", "1004", "night", "crew"));
  EXPECT_EQ(*list.acl[0].dictionary(), (Dictionary{{"isUser", 0},
                                                   {"uniqueID", 1001},
                                                   {"allowPermission", "NO"},
                                                   {"bitmap", kRead},
                                                   {"flags", 0}}));
  EXPECT_EQ(list.written, (WrittenDenials{{kNight, {1001, 1004}}}));
  EXPECT_EQ(list.denials, 1U);
}

TEST_F(StrictLists, StayAsTheyAreWhileTheMembersDo) {
  nameBefore(kAnna);
  nameBefore(kDora);
  KernelSide kernel = crewsFolder();
  kernel.access.users = {{kAnna.uid, 0}, {kDora.uid, 0}};
  const StrictList list = strict(kernel, {{kNight, {1001, 1004}}});
  EXPECT_FALSE(list.isChanged);
  EXPECT_THAT(whoIn(list), ElementsAre("anna", "dora", "night", "crew"));
}

TEST_F(StrictLists, FollowTheMembers) {
  const Person gone{1009, "gone", {1009}};
  nameBefore(gone);
  nameBefore(kAnna);
  KernelSide kernel = crewsFolder();
  kernel.access.users = {{kAnna.uid, 0}};
  const StrictList list = strict(kernel, {{kNight, {1001, 1009}}});
  EXPECT_TRUE(list.isChanged);
  EXPECT_THAT(whoIn(list), ElementsAre("anna", "1004", "night", "crew"));
  EXPECT_EQ(list.written, (WrittenDenials{{kNight, {1001, 1004}}}));
}

TEST_F(StrictLists, KeepDenialsThatOthersMade) {
  const Person guest{1009, "guest", {1009}};
  nameBefore(guest);
  const StrictList list = strict(crewsFolder());
  EXPECT_THAT(whoIn(list), ElementsAre("guest", "1001", "1004", "night", "crew"));
}

TEST_F(StrictLists, DoNotGrowWithoutKernelLists) {
  nameBefore(kAnna);
  nameBefore(kDora);
  KernelSide open;
  open.access.classes = {7, 0, 5};
  const StrictList list = strict(open, {{kNight, {1001, 1004}}});
  EXPECT_THAT(whoIn(list), ElementsAre("anna", "dora", "1002", "night", "crew"));
}

TEST_F(StrictLists, ThatCannotBeWrittenBackAreRefused) {
  acl_[1] = Dictionary{{"guid", "x"}};
  EXPECT_THROW(strict(crewsFolder()), DenialFailure);
}

TEST(RememberedDenials, ComeBackAsTheyWere) {
  const WrittenDenials written{{kNight, {1, 4294967294}}, {0, {}}, {kCrew, {7}}};
  WrittenDenials back = writtenDenials(rememberedForm(written));
  back[0];
  EXPECT_EQ(back, written);
  EXPECT_EQ(writtenDenials({{"x", Array{1}}, {"5", "text"}, {"-1", Array{1}}}), WrittenDenials{});
}

}  // namespace
}  // namespace paddock
