#include "platform/linux/privileges/file_acls.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/acl/ace_entry.h"
#include "platform/linux/acl/sid_forms.h"
#include "support/faulty_xattrs.h"
#include "support/file_acl_world.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using nt_acl::Ace;
using nt_acl::Descriptor;
using nt_acl::kAllowed;
using nt_acl::kDenied;
using nt_acl::Sid;
using nt_acl::withTail;
using posix_acl::Named;

constexpr const char* kList = "security.NTACL";
constexpr const char* kAccess = posix_acl::kAccessAttribute;
constexpr const char* kDefault = posix_acl::kDefaultAttribute;
constexpr acl::Flag kBoth = acl::kFileInherit | acl::kDirectoryInherit;

Sid userSid(std::uint32_t uid) { return nt_acl::unixSid({PrincipalType::user, uid}); }
Sid groupSid(std::uint32_t gid) { return nt_acl::unixSid({PrincipalType::group, gid}); }
Guid userGuid(std::uint32_t uid) { return computedGuid({PrincipalType::user, uid}); }

std::unique_ptr<acl::Entry> entryOf(int tag, const Guid& guid, acl::Permission permissions,
                                    acl::Flag flags = 0) {
  auto entry = std::make_unique<acl::Entry>();
  entry->tag = tag;
  entry->qualifier = guid;
  entry->permset.permissions = permissions;
  entry->flagset.flags = flags;
  return entry;
}

// A list built afresh that allows one user something.
acl::List allowing(std::uint32_t uid, acl::Permission permissions, acl::Flag flags = 0) {
  acl::List list;
  list.entries.push_back(entryOf(acl::kExtendedAllow, userGuid(uid), permissions, flags));
  return list;
}

class FileAclStorage : public ::testing::Test {
 protected:
  void SetUp() override {
    writeWholeFile(file_, "");
    ASSERT_EQ(::chmod(file_.c_str(), 0640), 0);
    ASSERT_EQ(::mkdir(sub_.c_str(), 0750), 0);
    if (const std::string why = whyNoLists(folder_.path()); !why.empty()) GTEST_SKIP() << why;
    if (const std::string why = whyNoPosixAcls(folder_.path()); !why.empty()) GTEST_SKIP() << why;
  }

  static FileDescriptor opened(const std::string& path) {
    FileDescriptor object;
    EXPECT_EQ(openObject(path, object), 0);
    return object;
  }
  int write(const std::string& path, const acl::List& list) {
    return world_.acls.writeTo(opened(path).get(), list);
  }
  std::unique_ptr<acl::List> read(const std::string& path) {
    std::unique_ptr<acl::List> list;
    const int error = world_.acls.readFrom(opened(path).get(), list);
    EXPECT_EQ(error, list ? 0 : ENOENT);
    return list;
  }
  int refresh(const std::string& path) { return world_.acls.refresh(opened(path).get()); }

  // Stores a list as an SMB server would.
  static void store(const std::string& path, const std::vector<Ace>& list) {
    Descriptor descriptor;
    descriptor.owner = userSid(4711);
    descriptor.group = groupSid(4711);
    descriptor.list = list;
    ASSERT_EQ(setAttribute(path, kList, nt_acl::encode(descriptor).value()), 0);
  }
  static void storeWithoutList(const std::string& path,
                               std::uint16_t control = nt_acl::kControlWritten) {
    const Descriptor descriptor{control, userSid(4711), groupSid(4711), {}};
    ASSERT_EQ(setAttribute(path, kList, nt_acl::encode(descriptor).value()), 0);
  }
  static Descriptor stored(const std::string& path) {
    return nt_acl::decode(attributeOf(path, kList).value_or("")).value();
  }
  static std::vector<Ace> storedList(const std::string& path) { return *stored(path).list; }
  static mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status.st_mode & 07777U;
  }

  TestFolder folder_;
  const std::string file_ = folder_.path("file");
  const std::string sub_ = folder_.path("sub");
  FileAclWorld world_;
};

TEST_F(FileAclStorage, NewListStoresOwnersMarkerAndTail) {
  ASSERT_EQ(write(file_, allowing(1000, acl::kReadData)), 0);
  const Descriptor descriptor = stored(file_);
  EXPECT_EQ(descriptor.control, 0x8404);
  EXPECT_EQ(descriptor.owner, userSid(::geteuid()));
  EXPECT_EQ(descriptor.group, groupSid(::getegid()));
  const std::vector<Ace> entries{{kAllowed, 0, 0x100001, userSid(1000), {}}};
  EXPECT_EQ(descriptor.list, withTail(entries, {::geteuid(), ::getegid(), {6, 4, 0}, false}));
}

TEST_F(FileAclStorage, ItsEntriesAloneAreReadBack) {
  ASSERT_EQ(write(file_, allowing(1000, acl::kReadData)), 0);
  const auto list = read(file_);
  ASSERT_TRUE(list);
  EXPECT_EQ(list->complete, false);
  ASSERT_EQ(list->entries.size(), 1U);
  EXPECT_EQ(list->entries[0]->qualifier, userGuid(1000));
  EXPECT_EQ(list->entries[0]->permset.permissions, acl::kReadData);
}

TEST_F(FileAclStorage, TailOfInheritableFolderPassesModeOn) {
  ASSERT_EQ(write(sub_, allowing(1000, acl::kReadData, kBoth)), 0);
  const auto list = storedList(sub_);
  EXPECT_EQ(list.back(), (Ace{kAllowed, 0x0B, 0x120080, nt_acl::everyoneSid(), {}}));
}

TEST_F(FileAclStorage, ServerListStaysCompleteAfterWriteBack) {
  store(file_, {{kAllowed, 0, 0x1F01FF, userSid(1000), {}}});
  auto list = read(file_);
  ASSERT_TRUE(list);
  EXPECT_EQ(list->complete, true);
  list->entries.push_back(entryOf(acl::kExtendedDeny, userGuid(1001), acl::kWriteData));
  ASSERT_EQ(write(file_, *list), 0);
  EXPECT_EQ(storedList(file_), (std::vector<Ace>{{kAllowed, 0, 0x1F01FF, userSid(1000), {}},
                                                 {kDenied, 0, 0x2, userSid(1001), {}}}));
  EXPECT_EQ(stored(file_).owner, userSid(::geteuid()));
}

TEST_F(FileAclStorage, EmptiedCompleteListIsStoredEmpty) {
  store(file_, {{kAllowed, 0, 0x1F01FF, userSid(1000), {}}});
  auto list = read(file_);
  list->entries.clear();
  ASSERT_EQ(write(file_, *list), 0);
  EXPECT_EQ(storedList(file_), std::vector<Ace>{});
  list = read(file_);
  ASSERT_TRUE(list);
  EXPECT_EQ(list->complete, true);
  EXPECT_TRUE(list->entries.empty());
}

TEST_F(FileAclStorage, EmptiedOwnListIsRemoved) {
  ASSERT_EQ(write(file_, allowing(1000, acl::kReadData)), 0);
  auto list = read(file_);
  list->entries.clear();
  ASSERT_EQ(write(file_, *list), 0);
  EXPECT_EQ(attributeOf(file_, kList), std::nullopt);
}

TEST_F(FileAclStorage, NewListInheritsCompletenessOfReplacedOne) {
  store(file_, {{kAllowed, 0, 0x1F01FF, userSid(1000), {}}});
  ASSERT_EQ(write(file_, allowing(1001, acl::kReadData)), 0);
  EXPECT_EQ(storedList(file_), (std::vector<Ace>{{kAllowed, 0, 0x100001, userSid(1001), {}}}));
  ASSERT_EQ(write(sub_, allowing(1001, acl::kReadData)), 0);
  ASSERT_EQ(write(sub_, allowing(1002, acl::kReadData)), 0);
  EXPECT_EQ(read(sub_)->complete, false);
}

TEST_F(FileAclStorage, NewEmptyListRemovesEvenCompleteOne) {
  store(file_, {{kAllowed, 0, 0x1F01FF, userSid(1000), {}}});
  ASSERT_EQ(write(file_, {}), 0);
  EXPECT_EQ(attributeOf(file_, kList), std::nullopt);
  EXPECT_EQ(read(file_), nullptr);
}

TEST_F(FileAclStorage, ReadListKeepsCompletenessOnOtherObject) {
  store(file_, {{kAllowed, 0, 0x1F01FF, userSid(1000), {}}});
  ASSERT_EQ(write(sub_, *read(file_)), 0);
  EXPECT_EQ(storedList(sub_), storedList(file_));
}

TEST_F(FileAclStorage, TailFollowsModeWithoutMask) {
  ASSERT_EQ(write(file_, allowing(1000, acl::kReadData | acl::kWriteData)), 0);
  EXPECT_EQ(modeOf(file_), 0660U) << "the mask";
  ASSERT_EQ(write(file_, allowing(1000, acl::kReadData | acl::kWriteData)), 0);
  EXPECT_EQ(storedList(file_)[3].sid, groupSid(::getegid()));
  EXPECT_EQ(storedList(file_)[3].mask, 0x120089U);
}

TEST_F(FileAclStorage, UndecodableValuesReadAsInvalidLists) {
  for (const std::string& value : {std::string("x"), std::string(), std::string(60000, 'x')}) {
    if (setAttribute(file_, kList, value) != 0) continue;
    const auto list = read(file_);
    ASSERT_TRUE(list);
    EXPECT_TRUE(list->undecodable);
    EXPECT_EQ(write(sub_, *list), EINVAL);
  }
}

TEST_F(FileAclStorage, UndecodableListIsReplacedByIncompleteOne) {
  ASSERT_EQ(setAttribute(file_, kList, "x"), 0);
  ASSERT_EQ(write(file_, allowing(1000, acl::kReadData)), 0);
  EXPECT_EQ(read(file_)->complete, false);
  ASSERT_EQ(setAttribute(file_, kList, "x"), 0);
  ASSERT_EQ(write(file_, {}), 0);
  EXPECT_EQ(attributeOf(file_, kList), std::nullopt);
}

// What such a descriptor says, as an entry.
const std::vector<Ace> kEverythingToEverybody{{kAllowed, 0, 0x1F01FF, {1, {0}}, {}}};

TEST_F(FileAclStorage, DescriptorWithMissingListAllowsEveryoneEverything) {
  storeWithoutList(file_);
  const auto list = read(file_);
  ASSERT_TRUE(list);
  EXPECT_EQ(list->complete, true);
  ASSERT_EQ(list->entries.size(), 1U);
  EXPECT_EQ(list->entries[0]->tag, acl::kExtendedAllow);
  EXPECT_EQ(list->entries[0]->qualifier, nt_acl::foreignGuid({1, {0}}));
  EXPECT_EQ(list->entries[0]->permset.permissions, acl::kAllPermissions);
  EXPECT_EQ(list->entries[0]->flagset.flags, 0U);
  EXPECT_EQ(stored(file_).list, std::nullopt) << "reading changes nothing";
}

TEST_F(FileAclStorage, DescriptorDeclaringNoListAllowsNobody) {
  storeWithoutList(file_, 0x8000);
  const auto list = read(file_);
  ASSERT_TRUE(list);
  EXPECT_EQ(list->complete, true);
  EXPECT_TRUE(list->entries.empty());
  ASSERT_EQ(refresh(file_), 0);
  EXPECT_EQ(storedList(file_), std::vector<Ace>{});
  storeWithoutList(file_, 0x8000);
  ASSERT_EQ(write(file_, *list), 0);
  EXPECT_EQ(storedList(file_), std::vector<Ace>{});
  ASSERT_EQ(write(file_, {}), 0);
  EXPECT_EQ(attributeOf(file_, kList), std::nullopt);
}

TEST_F(FileAclStorage, DescriptorWithoutListIsWrittenBackAsEntry) {
  storeWithoutList(file_);
  ASSERT_EQ(write(file_, *read(file_)), 0);
  EXPECT_EQ(storedList(file_), kEverythingToEverybody);
  storeWithoutList(file_);
  ASSERT_EQ(refresh(file_), 0);
  EXPECT_EQ(stored(file_).control, 0x8404);
  EXPECT_EQ(stored(file_).owner, userSid(::geteuid()));
  EXPECT_EQ(storedList(file_), kEverythingToEverybody);
  EXPECT_EQ(modeOf(file_), 0640U);
}

TEST_F(FileAclStorage, DescriptorWithoutListIsReplacedLikeCompleteList) {
  storeWithoutList(file_);
  ASSERT_EQ(write(file_, allowing(1000, acl::kReadData)), 0);
  EXPECT_EQ(storedList(file_), (std::vector<Ace>{{kAllowed, 0, 0x100001, userSid(1000), {}}}));
  storeWithoutList(file_);
  ASSERT_EQ(write(file_, {}), 0);
  EXPECT_EQ(attributeOf(file_, kList), std::nullopt);
}

TEST_F(FileAclStorage, EntriesBeyondThousandAreInvalidWithAnyTail) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    mountTmpfs(folder_.path(), "1m");
    writeWholeFile(file_, "");
    if (setAttribute(file_, kList, std::string(40000, 'x')) != 0) return;
    store(file_, std::vector<Ace>(1000, {kAllowed, 0, 1, {1, {0}}, {}}));
    EXPECT_FALSE(read(file_)->undecodable);
    store(file_, std::vector<Ace>(1001, {kAllowed, 0, 1, {1, {0}}, {}}));
    EXPECT_TRUE(read(file_)->undecodable);
  });
}

TEST_F(FileAclStorage, ListExceedingFormatIsTooBig) {
  acl::List list;
  for (int i = 0; i < 1000; ++i) {
    auto entry = entryOf(acl::kExtendedAllow, userGuid(1000), acl::kReadData);
    list.entries.push_back(std::move(entry));
  }
  // SIDs of 15 sub-authorities, as they may come from elsewhere.
  Sid longSid{5, std::vector<std::uint32_t>(15, 21)};
  Guid guid;
  ASSERT_EQ(world_.sids.guidFor(longSid, guid), 0);
  for (auto& entry : list.entries) entry->qualifier = guid;
  EXPECT_EQ(write(file_, list), E2BIG);
  EXPECT_EQ(attributeOf(file_, kList), std::nullopt);
}

TEST_F(FileAclStorage, InvalidListIsRefusedBeforeAnyChange) {
  acl::List list = allowing(1000, acl::kReadData);
  list.entries[0]->qualifier.reset();
  EXPECT_EQ(write(file_, list), EINVAL);
  list = allowing(1000, acl::kReadData);
  list.entries[0]->tag = acl::kUndefinedTag;
  EXPECT_EQ(write(file_, list), EINVAL);
  EXPECT_EQ(attributeOf(file_, kList), std::nullopt);
}

TEST_F(FileAclStorage, FifosAndDevicesHaveListsWithoutBeingOpened) {
  const std::string fifo = folder_.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0640), 0);
  ASSERT_EQ(write(fifo, allowing(1000, acl::kReadData)), 0);
  EXPECT_EQ(read(fifo)->entries.size(), 1U);
  EXPECT_EQ(posixAclOf(fifo, kAccess)->users, (std::vector<Named>{{1000, 4}}));
}

TEST_F(FileAclStorage, SymlinkItselfHasNoListAndAcceptsNone) {
  const std::string link = folder_.path("link");
  ASSERT_EQ(::symlink("file", link.c_str()), 0);
  const FileDescriptor object(::open(link.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  ASSERT_TRUE(object);
  std::unique_ptr<acl::List> list;
  EXPECT_EQ(world_.acls.readFrom(object.get(), list), ENOENT);
  EXPECT_EQ(world_.acls.writeTo(object.get(), allowing(1000, acl::kReadData)), EOPNOTSUPP);
  EXPECT_EQ(world_.acls.refresh(object.get()), 0);
  EXPECT_EQ(attributeOf(file_, kList), std::nullopt);
}

TEST_F(FileAclStorage, AnotherAttributeCanHoldTheList) {
  FileAclWorld world({"user.paddock_test", true});
  if (const std::string why = whyNoLists(folder_.path(), "user.paddock_test"); !why.empty())
    GTEST_SKIP() << why;
  ASSERT_EQ(world.acls.writeTo(opened(file_).get(), allowing(1000, acl::kReadData)), 0);
  EXPECT_TRUE(attributeOf(file_, "user.paddock_test"));
  EXPECT_EQ(read(file_), nullptr);
}

TEST_F(FileAclStorage, UnsupportingFileSystemHasAndAcceptsNoList) {
  FaultyXattrs xattrs;
  xattrs.takeNo(kList);
  FileAclWorld world({}, xattrs);
  std::unique_ptr<acl::List> list;
  EXPECT_EQ(world.acls.readFrom(opened(file_).get(), list), ENOENT);
  EXPECT_EQ(world.acls.writeTo(opened(file_).get(), allowing(1000, acl::kReadData)), EOPNOTSUPP);
  EXPECT_EQ(world.acls.refresh(opened(file_).get()), 0);
}

TEST_F(FileAclStorage, WithoutProcEveryCallRefuses) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  ASSERT_EQ(write(file_, allowing(1000, acl::kReadData)), 0);
  runInOwnMounts([this] {
    mountTmpfs("/proc", "64k");
    std::unique_ptr<acl::List> list;
    EXPECT_EQ(world_.acls.readFrom(opened(file_).get(), list), ENOSYS);
    EXPECT_EQ(world_.acls.writeTo(opened(file_).get(), allowing(1000, acl::kReadData)), ENOSYS);
    EXPECT_EQ(world_.acls.refresh(opened(file_).get()), ENOSYS);
  });
}

// The projection.

TEST_F(FileAclStorage, TheListIsProjected) {
  ASSERT_EQ(write(sub_, allowing(1000, acl::kReadData | acl::kWriteData, kBoth)), 0);
  const auto access = posixAclOf(sub_, kAccess);
  ASSERT_TRUE(access);
  EXPECT_EQ(access->classes, (posix_acl::Classes{7, 5, 0}));
  EXPECT_EQ(access->users, (std::vector<Named>{{1000, 6}}));
  EXPECT_EQ(access->mask, posix_acl::kAllBits);
  EXPECT_EQ(posixAclOf(sub_, kDefault), access);
}

TEST_F(FileAclStorage, AFileHasNoDefault) {
  ASSERT_EQ(write(file_, allowing(1000, acl::kReadData, kBoth)), 0);
  EXPECT_TRUE(posixAclOf(file_, kAccess));
  EXPECT_EQ(attributeOf(file_, kDefault), std::nullopt);
}

TEST_F(FileAclStorage, GroupsCountForTheUsersThatEntriesName) {
  world_.groups.groups[1000] = {50};
  acl::List list = allowing(1000, acl::kExecute);
  list.entries.push_back(
      entryOf(acl::kExtendedAllow, computedGuid({PrincipalType::group, 50}), acl::kReadData));
  ASSERT_EQ(write(file_, list), 0);
  EXPECT_EQ(posixAclOf(file_, kAccess)->users, (std::vector<Named>{{1000, 5}}));
  EXPECT_EQ(posixAclOf(file_, kAccess)->groups, (std::vector<Named>{{50, 4}}));
}

TEST_F(FileAclStorage, ACompleteListIsProjectedWithoutTheMode) {
  ASSERT_EQ(::chmod(file_.c_str(), 0644), 0);
  store(file_, {{kAllowed, 0, 0x100020, userSid(1000), {}}});
  ASSERT_EQ(write(file_, *read(file_)), 0);
  EXPECT_EQ(posixAclOf(file_, kAccess)->users, (std::vector<Named>{{1000, 1}}));
  EXPECT_EQ(posixAclOf(file_, kAccess)->classes, (posix_acl::Classes{6, 4, 4}));
}

TEST_F(FileAclStorage, RemovingListKeepsModeAndNoKernelAcl) {
  ASSERT_EQ(write(sub_, allowing(1000, acl::kAllPermissions, kBoth)), 0);
  ASSERT_EQ(modeOf(sub_), 0770U);
  ASSERT_EQ(write(sub_, {}), 0);
  EXPECT_EQ(attributeOf(sub_, kAccess), std::nullopt);
  EXPECT_EQ(attributeOf(sub_, kDefault), std::nullopt);
  EXPECT_EQ(modeOf(sub_), 0750U);
}

TEST_F(FileAclStorage, ListWithoutKernelPrincipalsLeavesNoKernelAcl) {
  ASSERT_EQ(write(file_, allowing(1000, acl::kWriteData)), 0);
  acl::List list;
  list.entries.push_back(entryOf(
      acl::kExtendedAllow, *parseGuid("DEADBEEF-0000-4000-8000-000000000001"), acl::kReadData));
  ASSERT_EQ(write(file_, list), 0);
  EXPECT_EQ(attributeOf(file_, kAccess), std::nullopt);
  EXPECT_EQ(modeOf(file_), 0640U);
}

TEST_F(FileAclStorage, ForeignKernelAclWithoutListIsPreserved) {
  posix_acl::Acl acl;
  acl.classes = {6, 4, 0};
  acl.users = {{1001, 4}};
  acl.computeMask();
  ASSERT_EQ(setAttribute(file_, kAccess, posix_acl::encode(acl)), 0);
  ASSERT_EQ(write(file_, {}), 0);
  ASSERT_EQ(refresh(file_), 0);
  EXPECT_EQ(posixAclOf(file_, kAccess), acl);
}

TEST_F(FileAclStorage, SpecialBitsOfTheModeOutliveTheProjection) {
  ASSERT_EQ(::chmod(sub_.c_str(), 03750), 0);
  ASSERT_EQ(write(sub_, allowing(1000, acl::kAllPermissions)), 0);
  EXPECT_EQ(modeOf(sub_), 03770U);
  ASSERT_EQ(write(sub_, {}), 0);
  EXPECT_EQ(modeOf(sub_), 03750U);
}

TEST_F(FileAclStorage, WithoutProjectionTheKernelsAclsAreLeftAlone) {
  FileAclWorld world({kList, false});
  ASSERT_EQ(world.acls.writeTo(opened(sub_).get(), allowing(1000, acl::kReadData, kBoth)), 0);
  EXPECT_EQ(attributeOf(sub_, kAccess), std::nullopt);
  EXPECT_EQ(attributeOf(sub_, kDefault), std::nullopt);
  ASSERT_EQ(write(sub_, allowing(1000, acl::kReadData, kBoth)), 0);
  ASSERT_EQ(world.acls.writeTo(opened(sub_).get(), {}), 0);
  EXPECT_TRUE(posixAclOf(sub_, kAccess));
  EXPECT_TRUE(posixAclOf(sub_, kDefault));
}

TEST_F(FileAclStorage, ListIsStoredWhereKernelAclsAreUnsupported) {
  FaultyXattrs xattrs;
  xattrs.takeNo(kAccess);
  FileAclWorld world({}, xattrs);
  EXPECT_EQ(world.acls.writeTo(opened(sub_).get(), allowing(1000, acl::kReadData, kBoth)), 0);
  EXPECT_TRUE(attributeOf(sub_, kList));
  EXPECT_EQ(attributeOf(sub_, kDefault), std::nullopt);
}

TEST_F(FileAclStorage, GroupsThatCannotBeFoundOutChangeNothing) {
  world_.groups.error = EIO;
  EXPECT_EQ(write(file_, allowing(1000, acl::kReadData)), EIO);
  EXPECT_EQ(attributeOf(file_, kList), std::nullopt);
  EXPECT_EQ(attributeOf(file_, kAccess), std::nullopt);
}

TEST_F(FileAclStorage, FailedWriteLeavesListAndProjectionUnchanged) {
  FaultyXattrs xattrs;
  FileAclWorld world({}, xattrs);
  const FileDescriptor object = opened(sub_);
  const auto state = [this] {
    return std::tuple{attributeOf(sub_, kList), attributeOf(sub_, kAccess),
                      attributeOf(sub_, kDefault), modeOf(sub_)};
  };
  // From nothing, from one list to another, and back to nothing.
  for (const auto& list : {allowing(1000, acl::kReadData, kBoth),
                           allowing(1001, acl::kAllPermissions, kBoth), acl::List{}}) {
    const auto before = state();
    int number = 1;
    for (;; ++number) {
      xattrs.failChange(number, ENOSPC);
      const int error = world.acls.writeTo(object.get(), list);
      if (error == 0) break;
      EXPECT_EQ(error, ENOSPC);
      EXPECT_EQ(state(), before) << "change " << number;
    }
    EXPECT_EQ(number, 4) << "list, default and access ACL are three changes";
    EXPECT_NE(state(), before);
  }
}

TEST_F(FileAclStorage, InterruptedWriteNeverLeavesKernelAclWithoutList) {
  FaultyXattrs xattrs;
  FileAclWorld world({}, xattrs);
  const FileDescriptor object = opened(sub_);
  for (int number = 1; number <= 3; ++number) {
    ASSERT_EQ(write(sub_, allowing(1000, acl::kReadData, kBoth)), 0);
    xattrs.failChangesFrom(number, EIO);
    ASSERT_EQ(world.acls.writeTo(object.get(), {}), EIO);
    EXPECT_NE(attributeOf(sub_, kList), std::nullopt) << "after " << number - 1 << " changes";
    ASSERT_EQ(write(sub_, {}), 0);
    EXPECT_EQ(attributeOf(sub_, kList), std::nullopt);
    EXPECT_EQ(attributeOf(sub_, kAccess), std::nullopt);
    EXPECT_EQ(attributeOf(sub_, kDefault), std::nullopt);
  }
}

TEST_F(FileAclStorage, WhatIsTheSameAlreadyIsNotWritten) {
  FaultyXattrs xattrs;
  FileAclWorld world({}, xattrs);
  const FileDescriptor object = opened(sub_);
  ASSERT_EQ(world.acls.writeTo(object.get(), allowing(1000, acl::kReadData, kBoth)), 0);
  xattrs.failChange(0, 0);
  ASSERT_EQ(world.acls.writeTo(object.get(), allowing(1000, acl::kReadData, kBoth)), 0);
  ASSERT_EQ(world.acls.refresh(object.get()), 0);
  EXPECT_EQ(xattrs.changes(), 0);
}

TEST_F(FileAclStorage, ListExceedingFileSystemFailsAndChangesNothing) {
  ASSERT_EQ(write(file_, allowing(1000, acl::kReadData)), 0);
  const auto list = attributeOf(file_, kList);
  const auto access = attributeOf(file_, kAccess);
  // The list itself finds room in a block of 4 KiB; its projection does not.
  for (const std::uint32_t count : {130U, 1000U}) {
    acl::List large;
    for (std::uint32_t uid = 1; uid <= count; ++uid)
      large.entries.push_back(entryOf(acl::kExtendedAllow, userGuid(uid), acl::kReadData));
    const int error = write(file_, large);
    if (error == 0) GTEST_SKIP() << "the file system holds lists of " << count << " entries";
    EXPECT_TRUE(error == ENOSPC || error == E2BIG) << error;
    EXPECT_EQ(attributeOf(file_, kList), list);
    EXPECT_EQ(attributeOf(file_, kAccess), access);
    EXPECT_EQ(modeOf(file_), 0640U);
  }
}

// Changes of owner, group and mode.

TEST_F(FileAclStorage, RefreshingRewritesOwnerGroupTailAndProjection) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a file to another account needs root";
  ASSERT_EQ(write(file_, allowing(1000, acl::kWriteData)), 0);
  ASSERT_EQ(::chown(file_.c_str(), 1, 2), 0);
  ASSERT_EQ(setAttribute(file_, kAccess, posix_acl::encode({{7, 5, 4}, {}, {}, {}})), 0);
  ASSERT_EQ(refresh(file_), 0);
  EXPECT_EQ(stored(file_).owner, userSid(1));
  EXPECT_EQ(stored(file_).group, groupSid(2));
  const std::vector<Ace> entries{{kAllowed, 0, 0x100002, userSid(1000), {}}};
  EXPECT_EQ(storedList(file_), withTail(entries, {1, 2, {7, 5, 4}, false}));
  EXPECT_EQ(posixAclOf(file_, kAccess)->users, (std::vector<Named>{{1000, 6}}));
}

TEST_F(FileAclStorage, RefreshingACompleteListAddsNoTail) {
  store(file_, {{kAllowed, 0, 0x1F01FF, userSid(1000), {}}});
  ASSERT_EQ(refresh(file_), 0);
  EXPECT_EQ(storedList(file_), (std::vector<Ace>{{kAllowed, 0, 0x1F01FF, userSid(1000), {}}}));
  EXPECT_EQ(stored(file_).owner, userSid(::geteuid()));
  EXPECT_EQ(posixAclOf(file_, kAccess)->users, (std::vector<Named>{{1000, 7}}));
}

TEST_F(FileAclStorage, RefreshingKeepsBitsThatAreNoPermission) {
  const Ace peculiar{kAllowed, 0x80, 0x10000001, userSid(1000), {}};
  store(file_, withTail({peculiar}, {4711, 4711, {7, 7, 7}, false}));
  ASSERT_EQ(refresh(file_), 0);
  EXPECT_EQ(storedList(file_), withTail({peculiar}, {::geteuid(), ::getegid(), {6, 4, 0}, false}));
}

TEST_F(FileAclStorage, RefreshingSkipsMissingAndInvalidLists) {
  ASSERT_EQ(refresh(file_), 0);
  EXPECT_EQ(attributeOf(file_, kList), std::nullopt);
  EXPECT_EQ(attributeOf(file_, kAccess), std::nullopt);
  ASSERT_EQ(setAttribute(file_, kList, "x"), 0);
  ASSERT_EQ(refresh(file_), 0);
  EXPECT_EQ(attributeOf(file_, kList), "x");
  EXPECT_EQ(attributeOf(file_, kAccess), std::nullopt);
}

}  // namespace
}  // namespace paddock
