#include "privileges/acl_manipulation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "platform/privileged_object.h"
#include "support/privileges_fixture.h"

namespace paddock {

// For failures to read well.
void PrintTo(const InheritableACL& node, std::ostream* out);
void PrintTo(const InheritableACL& node, std::ostream* out) {
  *out << guidText(Guid{node.guid}) << " tag " << node.tag << " flags " << node.flags
       << " permissions " << node.permissions;
}

namespace {

using acl::kExtendedAllow;
using acl::kExtendedDeny;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr acl::Flag kBoth = acl::kFileInherit | acl::kDirectoryInherit;
constexpr int kOtherKind = 1;

struct Node {
  Guid guid;
  int tag;
  std::uint32_t flags;
  std::uint32_t permissions;
  friend bool operator==(const Node&, const Node&) = default;
};
std::ostream& operator<<(std::ostream& out, const Node& node) {
  return out << "{" << guidText(node.guid) << " tag " << node.tag << " flags " << node.flags
             << " permissions " << node.permissions << "}";
}

// Levels of entries, the nearest folder first, released at the end.
class Composite {
 public:
  Composite(std::initializer_list<std::vector<Node>> levels) {
    InheritedACLComposite** last = &first_;
    for (const auto& nodes : levels) {
      *last = AllocInheritedACLComposite();
      InheritableACL** node = &(*last)->entries;
      for (const Node& one : nodes) {
        *node = AllocInheritableACL();
        **node = {one.guid.bytes, one.tag, one.flags, one.permissions, nullptr};
        node = &(*node)->next;
      }
      last = &(*last)->next;
    }
  }
  Composite(const Composite&) = delete;
  Composite& operator=(const Composite&) = delete;
  ~Composite() {
    while (first_ != nullptr) FreeInheritedACLComposite(std::exchange(first_, first_->next));
  }
  InheritedACLComposite* get() const { return first_; }

 private:
  InheritedACLComposite* first_ = nullptr;
};

class AclManipulation : public PrivilegesFixture {
 protected:
  static constexpr const char* kFile = "/srv/folder/file";

  AclManipulation() { tree.set(kFile, {"anna", "staff", 0644, "regular"}); }

  void store(const std::vector<acl::Entry>& entries, const char* path = kFolder) {
    tree.setAcl(path, {.entries = entries});
  }
  std::vector<Node> stored(const char* path = kFolder) {
    std::vector<Node> nodes;
    const StoredAcl* found = tree.acl(path);
    if (found == nullptr) return nodes;
    for (const acl::Entry& entry : found->entries) {
      nodes.push_back({entry.qualifier.value_or(Guid{}), entry.tag, entry.flagset.flags,
                       entry.permset.permissions});
    }
    return nodes;
  }
  // What GetInheritableACL finds; its result goes to `result_`.
  std::vector<Node> inheritable(bool includeInherited = true) {
    InheritableACL* head = AllocInheritableACL();
    const std::unique_ptr<InheritableACL> old(head);
    result_ = GetInheritableACL(kFolder, &head, includeInherited ? 1 : 0);
    std::vector<Node> nodes;
    for (const InheritableACL* node = head; node != nullptr; node = node->next) {
      nodes.push_back({Guid{node->guid}, node->tag, node->flags, node->permissions});
    }
    FreeInheritableACL(head);
    return nodes;
  }
  void set(std::uint32_t what, int kind, const Composite& composite, const char* path = kFolder) {
    const PrivsToSet privs{what, 7, 8, 0, composite.get()};
    SetInheritedPrivs(path, &privs, kind);
  }
  void setEntries(const Composite& composite, int kind = kDirectoryKind,
                  const char* path = kFolder) {
    set(kSetInheritedEntries, kind, composite, path);
  }
  static Node inherited(std::uint8_t guid, std::uint32_t flags = 0, std::uint32_t permissions = 2) {
    return {guidNumber(guid), kExtendedAllow, flags | acl::kInherited, permissions};
  }
  static Node node(std::uint8_t guid, std::uint32_t flags, std::uint32_t permissions = 2) {
    return {guidNumber(guid), kExtendedAllow, flags, permissions};
  }

  int result_ = 0;
};

// --- GetInheritableACL

TEST_F(AclManipulation, ObjectWithoutAclHasNoInheritableEntries) {
  EXPECT_THAT(inheritable(), IsEmpty());
  EXPECT_EQ(result_, 0);
}

TEST_F(AclManipulation, AMissingObjectHasNoInheritableEntries) {
  tree.remove(kFolder);
  EXPECT_THAT(inheritable(), IsEmpty());
  EXPECT_EQ(result_, 0);
}

TEST_F(AclManipulation, AnInvalidAclHasNoInheritableEntries) {
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  EXPECT_THAT(inheritable(), IsEmpty());
  EXPECT_EQ(result_, 0);
}

TEST_F(AclManipulation, InheritableEntriesAreCollectedInOrder) {
  store({entryOf(kExtendedAllow, guidNumber(1), 0x3FFE, acl::kAllFlags),
         entryOf(kExtendedDeny, guidNumber(2), 4, acl::kFileInherit),
         entryOf(kExtendedAllow, guidNumber(3), 8, acl::kDirectoryInherit | acl::kOnlyInherit),
         entryOf(kExtendedAllow, guidNumber(4), 16, acl::kLimitInherit),
         entryOf(kExtendedAllow, guidNumber(5), 32)});
  EXPECT_THAT(inheritable(), ElementsAre(Node{guidNumber(1), kExtendedAllow, 0x1F0, 0x3FFE},
                                         Node{guidNumber(2), kExtendedDeny, acl::kFileInherit, 4},
                                         Node{guidNumber(3), kExtendedAllow,
                                              acl::kDirectoryInherit | acl::kOnlyInherit, 8}));
}

TEST_F(AclManipulation, InheritedEntriesAreLeftOutUnlessAskedFor) {
  store({entryOf(kExtendedAllow, guidNumber(1), 2, kBoth | acl::kInherited),
         entryOf(kExtendedAllow, guidNumber(2), 2, kBoth)});
  EXPECT_THAT(inheritable(false), ElementsAre(node(2, kBoth)));
  EXPECT_THAT(inheritable(true), ElementsAre(node(1, kBoth | acl::kInherited), node(2, kBoth)));
}

TEST_F(AclManipulation, EntryNeitherAllowingNorDenyingIsSkipped) {
  store({entryOf(acl::kForeignTag, guidNumber(1), 2, kBoth),
         entryOf(kExtendedAllow, guidNumber(2), 2, kBoth)});
  EXPECT_THAT(inheritable(), ElementsAre(node(2, kBoth)));
  EXPECT_EQ(result_, 0);
}

TEST_F(AclManipulation, UnreadableQualifierFlagSetOrTagEndsCollection) {
  for (const char* call :
       {"acl.acl_get_qualifier", "acl.acl_get_flagset_np", "acl.acl_get_tag_type"}) {
    SCOPED_TRACE(call);
    store({entryOf(kExtendedAllow, guidNumber(1), 2, kBoth),
           entryOf(kExtendedAllow, guidNumber(2), 2, kBoth),
           entryOf(kExtendedAllow, guidNumber(3), 2, kBoth)});
    EXPECT_THAT(failing(
                    call, [this] { return inheritable(); }, 2),
                ElementsAre(node(1, kBoth)));
    EXPECT_EQ(result_, 0);
  }
}

TEST_F(AclManipulation, UnreadablePermissionSetReturnsErrorWithoutList) {
  store({entryOf(kExtendedAllow, guidNumber(1), 2, kBoth),
         entryOf(kExtendedAllow, guidNumber(2), 2, kBoth)});
  EXPECT_THAT(failing(
                  "acl.acl_get_permset", [this] { return inheritable(); }, 2, EBADF),
              IsEmpty());
  EXPECT_EQ(result_, EBADF);
}

TEST_F(AclManipulation, NoninheritableEntryPermissionSetIsNotRead) {
  store({entryOf(kExtendedAllow, guidNumber(1), 2),
         entryOf(kExtendedAllow, guidNumber(2), 2, kBoth)});
  EXPECT_THAT(failing(
                  "acl.acl_get_permset", [this] { return inheritable(); }, 1),
              IsEmpty());
  EXPECT_NE(result_, 0);
}

// --- SetInheritedPrivs: old entries

TEST_F(AclManipulation, OldInheritedEntriesGoAndOthersStay) {
  store({entryOf(kExtendedAllow, guidNumber(1), 2, acl::kInherited),
         entryOf(kExtendedAllow, guidNumber(2), 4),
         entryOf(kExtendedAllow, guidNumber(3), 8, acl::kInherited | kBoth),
         entryOf(kExtendedDeny, guidNumber(4), 8, kBoth)});
  setEntries({});
  EXPECT_THAT(stored(), ElementsAre(Node{guidNumber(2), kExtendedAllow, 0, 4},
                                    Node{guidNumber(4), kExtendedDeny, kBoth, 8}));
}

TEST_F(AclManipulation, AListOfInheritedEntriesAloneGoesAltogether) {
  store({entryOf(kExtendedAllow, guidNumber(1), 2, acl::kInherited)});
  setEntries({});
  EXPECT_EQ(tree.acl(kFolder), nullptr);
}

TEST_F(AclManipulation, ACompleteListStaysPresentWithoutEntries) {
  tree.setAcl(kFolder, {.entries = {entryOf(kExtendedAllow, guidNumber(1), 2, acl::kInherited)},
                        .undecodable = false,
                        .complete = true});
  setEntries({});
  ASSERT_NE(tree.acl(kFolder), nullptr);
  EXPECT_TRUE(tree.acl(kFolder)->complete);
  EXPECT_THAT(stored(), IsEmpty());
}

TEST_F(AclManipulation, WithoutInheritedEntriesNothingIsWrittenBack) {
  store({entryOf(kExtendedAllow, guidNumber(1), 2)});
  setEntries({});
  EXPECT_EQ(acl.replacements(), 0);
}

TEST_F(AclManipulation, EmptyLevelsLeaveObjectWithoutAclUntouched) {
  setEntries({{}, {}, {}});
  EXPECT_EQ(acl.replacements(), 0);
  EXPECT_EQ(tree.acl(kFolder), nullptr);
}

TEST_F(AclManipulation, WithoutTheMaskBitNoEntryIsTouched) {
  store({entryOf(kExtendedAllow, guidNumber(1), 2, acl::kInherited)});
  set(31, kDirectoryKind, {{node(2, kBoth)}});
  EXPECT_THAT(stored(), ElementsAre(inherited(1)));
}

// --- owner and group

TEST_F(AclManipulation, OwnerAndGroupHaveSeparateMaskBits) {
  set(kSetOwner, kDirectoryKind, {});
  EXPECT_EQ(privilegedObjects.owners(kFolder), (InMemoryPrivilegedObjects::Owners{7, 0}));
  privilegedObjects.owners(kFolder) = {};
  set(kSetGroup, kDirectoryKind, {});
  EXPECT_EQ(privilegedObjects.owners(kFolder), (InMemoryPrivilegedObjects::Owners{0, 8}));
  set(kSetOwner | kSetGroup, kDirectoryKind, {});
  EXPECT_EQ(privilegedObjects.owners(kFolder), (InMemoryPrivilegedObjects::Owners{7, 8}));
}

// --- mode

mode_t modeOf(std::uint32_t what, std::uint16_t given, mode_t current, int kind) {
  return inherited_mode(current, {what, 0, 0, given, nullptr}, kind);
}

TEST(InheritedMode, FolderGainsSearchWhereReadableOrWritable) {
  EXPECT_EQ(modeOf(4, 0640, 02055, kDirectoryKind), 0755U);
  EXPECT_EQ(modeOf(28, 0640, 0, kDirectoryKind), 0750U);
  EXPECT_EQ(modeOf(28, 0222, 0, kDirectoryKind), 0333U);
  EXPECT_EQ(modeOf(28, 0, 0777, kDirectoryKind), 0U);
}

TEST(InheritedMode, FolderIgnoresRequestedExecuteBits) {
  EXPECT_EQ(modeOf(28, 0711, 0, kDirectoryKind), 0700U);
}

TEST(InheritedMode, FolderKeepsUnsetClassesWithSearchBits) {
  EXPECT_EQ(modeOf(4, 0600, 0051, kDirectoryKind), 0751U);
  EXPECT_EQ(modeOf(8, 0060, 0401, kDirectoryKind), 0471U);
  EXPECT_EQ(modeOf(16, 0004, 0420, kDirectoryKind), 0425U);
}

TEST(InheritedMode, OfAFileKeepsItsExecuteBits) {
  EXPECT_EQ(modeOf(28, 0666, 0755, kRegularKind), 0777U);
  EXPECT_EQ(modeOf(28, 0640, 0711, kRegularKind), 0751U);
  EXPECT_EQ(modeOf(4, 0777, 0644, kRegularKind), 0644U);
  EXPECT_EQ(modeOf(28, 0777, 0644, kOtherKind), 0666U);
}

TEST(InheritedMode, NeverHasSetIdOrStickyBits) {
  for (const int kind : {kDirectoryKind, kRegularKind, kOtherKind}) {
    EXPECT_EQ(modeOf(4, 0600, 07777, kind) & 07000U, 0U) << kind;
    EXPECT_EQ(modeOf(28, 07777 & 0xFFFF, 0, kind) & 07000U, 0U) << kind;
  }
}

TEST_F(AclManipulation, AnyOfThreeBitsSetsMode) {
  const Composite none{};
  for (const std::uint32_t what : {4U, 8U, 16U}) {
    tree.set(kFile, {"anna", "staff", 04777, "regular"});
    const PrivsToSet privs{what, 0, 0, 0, none.get()};
    SetInheritedPrivs(kFile, &privs, kRegularKind);
    const mode_t expected = inherited_mode(04777, privs, kRegularKind);
    EXPECT_EQ(tree.attributes(kFile).permissions, expected);
    EXPECT_NE(expected, 04777U);
  }
  tree.set(kFile, {"anna", "staff", 04777, "regular"});
  set(kSetOwner | kSetGroup | kSetInheritedEntries, kRegularKind, none, kFile);
  EXPECT_EQ(tree.attributes(kFile).permissions, 04777U);
}

// --- inherited entries

TEST_F(AclManipulation, InheritedEntriesAreAppendedLevelByLevel) {
  store({entryOf(kExtendedDeny, guidNumber(9), 4)});
  setEntries({{node(1, kBoth), node(2, kBoth)}, {}, {node(3, kBoth, 0x3FFE)}});
  EXPECT_THAT(stored(), ElementsAre(Node{guidNumber(9), kExtendedDeny, 0, 4}, inherited(1, kBoth),
                                    inherited(2, kBoth), inherited(3, kBoth, 0x3FFE)));
}

TEST_F(AclManipulation, AnObjectWithoutAnAclGetsOne) {
  setEntries({{}, {node(1, kBoth)}});
  EXPECT_THAT(stored(), ElementsAre(inherited(1, kBoth)));
}

TEST_F(AclManipulation, AFolderTakesWhatFoldersInherit) {
  setEntries({{node(1, acl::kFileInherit), node(2, acl::kDirectoryInherit), node(3, kBoth)}});
  EXPECT_THAT(stored(), ElementsAre(inherited(2, acl::kDirectoryInherit), inherited(3, kBoth)));
}

TEST_F(AclManipulation, FileTakesFileEntriesAndPassesNothingOn) {
  setEntries({{node(1, acl::kFileInherit), node(2, acl::kDirectoryInherit), node(3, kBoth)}},
             kRegularKind, kFile);
  EXPECT_THAT(stored(kFile), ElementsAre(inherited(1), inherited(3)));
}

TEST_F(AclManipulation, AnotherKindTakesEverythingAndPassesNothingOn) {
  setEntries({{node(1, acl::kFileInherit), node(2, acl::kDirectoryInherit)}}, kOtherKind, kFile);
  EXPECT_THAT(stored(kFile), ElementsAre(inherited(1), inherited(2)));
}

TEST_F(AclManipulation, OnlyInheritIsNeverCarriedOver) {
  setEntries({{node(1, kBoth | acl::kOnlyInherit)}});
  EXPECT_THAT(stored(), ElementsAre(inherited(1, kBoth)));
}

TEST_F(AclManipulation, PermissionsBeyondTheKnownOnesAreNotSet) {
  setEntries({{node(1, kBoth, 0xFFFFFFFF)}});
  EXPECT_THAT(stored(), ElementsAre(inherited(1, kBoth, 0x3FFE)));
}

TEST_F(AclManipulation, LimitedInheritanceReachesDepthOneAlone) {
  const std::uint32_t limited = kBoth | acl::kLimitInherit;
  const std::initializer_list<std::vector<Node>> levels = {
      {node(1, limited)}, {node(2, limited)}, {node(3, limited)}};
  setEntries(levels);
  EXPECT_THAT(stored(), ElementsAre(inherited(2, acl::kLimitInherit)));
  setEntries(levels, kRegularKind, kFile);
  EXPECT_THAT(stored(kFile), ElementsAre(inherited(1, acl::kLimitInherit)));
}

TEST_F(AclManipulation, TheDepthCountsTheEmptyLevelsInFront) {
  const std::uint32_t limited = kBoth | acl::kLimitInherit;
  setEntries({{}, {node(1, limited)}, {node(2, limited)}});
  EXPECT_THAT(stored(), ElementsAre(inherited(1, acl::kLimitInherit)));
  setEntries({{}, {node(1, limited)}}, kRegularKind, kFile);
  EXPECT_EQ(tree.acl(kFile), nullptr);
}

TEST_F(AclManipulation, InvalidAclIsLeftAloneWithoutLogLine) {
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  setEntries({{node(1, kBoth)}});
  EXPECT_TRUE(tree.acl(kFolder)->undecodable);
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(AclManipulation, LastStepFailuresAreLoggedWithReason) {
  store({entryOf(kExtendedAllow, guidNumber(9), 4)});
  const Composite composite{{node(1, kBoth)}};
  for (const char* call :
       {"acl.acl_create_entry", "acl.acl_set_tag_type", "acl.acl_set_qualifier",
        "acl.acl_get_permset", "acl.acl_clear_perms", "acl.acl_add_perm", "acl.acl_set_permset",
        "acl.acl_clear_flags_np", "acl.acl_add_flag_np", "acl.acl_set_flagset_np"}) {
    SCOPED_TRACE(call);
    failing(
        call,
        [&] {
          setEntries(composite);
          return 0;
        },
        1, ENOSPC);
    EXPECT_THAT(stored(), ElementsAre(Node{guidNumber(9), kExtendedAllow, 0, 4}));
    EXPECT_EQ(errorLines(), (Lines{{kLogError,
                                    "Could not set ACL permissions for /srv/folder, "
                                    "error: No space left on device"}}));
    logger.clear();
  }
}

// An object that cannot be read or written.
class BrokenObject : public PrivilegedObject {
 public:
  acl::List* getAcl() override {
    errno = readError;
    return nullptr;
  }
  int setAcl(acl::List*) override {
    ++written;
    errno = EROFS;
    return -1;
  }
  int changeOwner(std::uint32_t uid, std::uint32_t gid) override {
    owners.emplace_back(uid, gid);
    return EPERM;
  }
  int readMode(mode_t& mode) override {
    mode = 0600;
    return modeError;
  }
  int changeMode(mode_t mode) override {
    modes.push_back(mode);
    return EROFS;
  }

  int readError = ENOENT;
  int modeError = 0;
  int written = 0;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> owners;
  std::vector<mode_t> modes;
};

TEST_F(AclManipulation, StepsContinuePastFailuresOfOthers) {
  BrokenObject object;
  const Composite composite{{node(1, kBoth)}};
  SetInheritedPrivs(object, "/the/name", {63, 7, 8, 0640, composite.get()}, kRegularKind);
  constexpr std::uint32_t kSame = PrivilegedObject::kUnchanged;
  EXPECT_THAT(object.owners, ElementsAre(std::pair(7U, kSame), std::pair(kSame, 8U)));
  EXPECT_THAT(object.modes, ElementsAre(0640U));
  EXPECT_EQ(object.written, 1);
  EXPECT_EQ(errorLines(), (Lines{{kLogError,
                                  "Could not set ACL permissions for /the/name, error: "
                                  "Read-only file system"}}));
}

TEST_F(AclManipulation, UnreadableModeIsNotSet) {
  BrokenObject object;
  object.modeError = EIO;
  SetInheritedPrivs(object, "x", {28, 0, 0, 0640, nullptr}, kRegularKind);
  EXPECT_THAT(object.modes, IsEmpty());
}

TEST_F(AclManipulation, UnreadableListIsNotReplaced) {
  BrokenObject object;
  object.readError = EIO;
  const Composite composite{{node(1, kBoth)}};
  SetInheritedPrivs(object, "x", {32, 0, 0, 0, composite.get()}, kRegularKind);
  EXPECT_EQ(object.written, 0);
  EXPECT_EQ(errorLines(),
            (Lines{{kLogError, "Could not set ACL permissions for x, error: Input/output error"}}));
}

TEST_F(AclManipulation, MissingObjectDueEntriesIsLogged) {
  tree.remove(kFolder);
  setEntries({{}});
  set(kSetOwner, kDirectoryKind, {{node(1, kBoth)}});
  EXPECT_TRUE(logger.lines().empty());
  setEntries({{node(1, kBoth)}});
  EXPECT_EQ(errorLines(), (Lines{{kLogError,
                                  "Could not set ACL permissions for /srv/folder, "
                                  "error: No such file or directory"}}));
}

using AclManipulationFault = AclManipulation;

TEST_F(AclManipulationFault, TheDebugSwitchRaisesAFaultBeforeWriting) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EQ(gDebugBreak, 0);
  EXPECT_DEATH(
      {
        gDebugBreak = 1;
        setEntries({{node(1, kBoth)}});
      },
      "");
  gDebugBreak = 1;
  setEntries({{}});  // nothing to write, no fault
  gDebugBreak = 0;
}

TEST(FreeInheritedACLComposite, LeavesTheLevelsBehind) {
  InheritedACLComposite* first = AllocInheritedACLComposite();
  EXPECT_EQ(first->entries, nullptr);
  EXPECT_EQ(first->next, nullptr);
  first->next = AllocInheritedACLComposite();
  first->entries = AllocInheritableACL();
  EXPECT_EQ(first->entries->next, nullptr);
  first->entries->next = AllocInheritableACL();
  InheritedACLComposite* second = first->next;
  FreeInheritedACLComposite(first);
  EXPECT_EQ(second->next, nullptr);
  FreeInheritedACLComposite(second);
  FreeInheritedACLComposite(nullptr);
}

}  // namespace
}  // namespace paddock
