#include "copyprivs/buffered_object.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <random>

#include "platform/linux/acl/posix_acl.h"
#include "platform/linux/privileges/linux_acl.h"
#include "platform/services.h"
#include "platform/testing/recording_host_services.h"
#include "privileges/acl_manipulation.h"
#include "support/file_acl_world.h"
#include "support/loop_volume.h"
#include "support/own_mounts.h"

namespace paddock::copyprivs {

// For readable failure messages.
void PrintTo(const ObjectState& state, std::ostream* out);
void PrintTo(const ObjectState& state, std::ostream* out) {
  *out << std::oct << state.mode << std::dec << " " << state.uid << ":" << state.gid;
  for (const Attribute* one : {&state.list, &state.access, &state.passedOn}) {
    *out << " [" << one->error << "]";
    for (const char byte : one->value) *out << std::hex << (static_cast<unsigned>(byte) & 0xFFU);
  }
}

namespace {

constexpr const char* kList = "security.NTACL";

void readAttribute(int object, const char* name, Attribute& attribute) {
  attribute.error = linuxExtendedAttributes().get(object, name, attribute.value);
}

ObjectState stateOf(const std::string& path) {
  FileDescriptor object;
  if (openObject(path, object) != 0) throw std::runtime_error("open " + path);
  struct stat status {};
  ::fstat(object.get(), &status);
  ObjectState state;
  state.mode = status.st_mode;
  state.uid = status.st_uid;
  state.gid = status.st_gid;
  readAttribute(object.get(), kList, state.list);
  readAttribute(object.get(), posix_acl::kAccessAttribute, state.access);
  if (state.isFolder()) readAttribute(object.get(), posix_acl::kDefaultAttribute, state.passedOn);
  return state;
}

// Random objects, and random changes of them.
class Chance {
 public:
  explicit Chance(unsigned seed) : random_(seed) {}

  std::uint32_t below(std::uint32_t end) { return static_cast<std::uint32_t>(random_() % end); }
  mode_t mode() { return below(8) == 0 ? below(010000) : below(01000); }
  InheritableACL* entries() {
    InheritableACL* first = nullptr;
    for (std::uint32_t count = below(3); count > 0; --count) {
      InheritableACL* entry = AllocInheritableACL();
      *entry = {guid().bytes, tag(), flags(), permissions(), first};
      first = entry;
    }
    return first;
  }
  std::unique_ptr<acl::List> list() {
    auto list = std::make_unique<acl::List>();
    if (below(3) == 0) list->complete = below(2) == 0;
    for (std::uint32_t count = below(4); count > 0; --count) {
      auto entry = std::make_unique<acl::Entry>();
      entry->tag = tag();
      entry->qualifier = guid();
      entry->permset.permissions = permissions();
      entry->flagset.flags = flags();
      list->entries.push_back(std::move(entry));
    }
    return list;
  }

 private:
  Guid guid() { return computedGuid({PrincipalType::user, 1000 + below(3)}); }
  int tag() { return static_cast<int>(acl::kExtendedAllow + below(2)); }
  std::uint32_t flags() { return below(32) << 4U; }
  std::uint32_t permissions() { return below(acl::kAllPermissions + 1) & acl::kAllPermissions; }

  std::mt19937 random_;
};

class RandomChange {
 public:
  explicit RandomChange(Chance& chance) {
    InheritedACLComposite** last = &first_;
    for (std::uint32_t count = chance.below(4); count > 0; --count) {
      *last = AllocInheritedACLComposite();
      (*last)->entries = chance.entries();
      last = &(*last)->next;
    }
    privs_ = {chance.below(kSetEverything + 1), chance.below(3), chance.below(3),
              static_cast<std::uint16_t>(chance.mode()), first_};
  }
  RandomChange(const RandomChange&) = delete;
  RandomChange& operator=(const RandomChange&) = delete;
  ~RandomChange() {
    while (first_ != nullptr) FreeInheritedACLComposite(std::exchange(first_, first_->next));
  }
  const PrivsToSet& privs() const { return privs_; }

 private:
  InheritedACLComposite* first_ = nullptr;
  PrivsToSet privs_{};
};

class BufferedObjects : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string why = whyNoLoopVolumes();
    if (!why.empty()) GTEST_SKIP() << why;
  }
};

struct Worlds {
  explicit Worlds(bool projects) : options{kList, projects, nullptr} {
    services.acl = &calls;
    services.logger = &logger;
  }
  FileAclOptions options;
  BufferedAttributes attributes{kList};
  FileAclWorld kernel{options};
  FileAclWorld buffered{options, attributes};
  LinuxAcl calls{kernel.acls};
  RecordingLogger logger;
  Services services;
};

void makeObject(const std::string& path, bool isFolder, Chance& chance, Worlds& worlds) {
  if (isFolder) {
    ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
  } else {
    writeWholeFile(path, "");
  }
  ASSERT_EQ(::chown(path.c_str(), chance.below(3), chance.below(3)), 0);
  ASSERT_EQ(::chmod(path.c_str(), chance.mode()), 0);
  FileDescriptor object;
  ASSERT_EQ(openObject(path, object), 0);
  if (chance.below(3) != 0) {
    ASSERT_EQ(worlds.kernel.acls.writeTo(object.get(), *chance.list()), 0);
  }
  // A list may be out of date.
  if (chance.below(4) == 0) {
    ASSERT_EQ(::chmod(path.c_str(), chance.mode()), 0);
  }
  if (chance.below(8) == 0) {
    ASSERT_EQ(setAttribute(path, kList, "rubbish"), 0);
  }
}

// The kernel clears the set-id bits of a file also on a chown to its present owner.
bool isClearedForNothing(const ObjectState& before, const PrivsToSet& privs) {
  return !before.isFolder() && (before.mode & 06000) != 0 &&
         (privs.what & (kSetOwner | kSetGroup)) != 0 &&
         (privs.what & (kSetOwnerPermissions | kSetGroupPermissions | kSetOtherPermissions)) == 0;
}

void compare(bool projects) {
  runInOwnMounts([projects] {
    const LoopVolume volume("32M");
    Worlds worlds(projects);
    const ServicesGuard guard(worlds.services);
    Chance chance(projects ? 1 : 2);
    for (int round = 0; round < 1500; ++round) {
      const bool isFolder = round % 2 == 0;
      const std::string path = volume.path(std::to_string(round));
      makeObject(path, isFolder, chance, worlds);
      const RandomChange change(chance);
      const ObjectState before = stateOf(path);
      if (isClearedForNothing(before, change.privs())) continue;
      const int kind = isFolder ? kDirectoryKind : kRegularKind;
      worlds.attributes.state() = before;
      BufferedObject buffered(worlds.attributes, worlds.buffered.acls, true);
      SetInheritedPrivs(buffered, path.c_str(), change.privs(), kind);
      FileDescriptor object;
      ASSERT_EQ(openObject(path, object), 0);
      LinuxPrivilegedObject real(std::move(object), worlds.kernel.acls);
      SetInheritedPrivs(real, path.c_str(), change.privs(), kind);
      ASSERT_EQ(worlds.attributes.state(), stateOf(path))
          << "round " << round << ", what " << change.privs().what << ", before "
          << ::testing::PrintToString(before);
    }
  });
}

TEST_F(BufferedObjects, ComeOutAsThoseOfTheKernel) { compare(true); }

TEST_F(BufferedObjects, MatchKernelResultsWithoutProjection) { compare(false); }

TEST(BufferedObject, MissingAttributeSupportFailsOnlyWhenSettingEntries) {
  BufferedAttributes attributes(kList);
  const FileAclWorld world({kList, true, nullptr}, attributes);
  ObjectState& state = attributes.state();
  state.mode = S_IFREG | 0600;
  state.list.error = EOPNOTSUPP;
  state.access.error = EOPNOTSUPP;
  BufferedObject object(attributes, world.acls, true);
  EXPECT_EQ(object.changeOwner(1, 2), 0);
  EXPECT_EQ(object.changeMode(0640), 0);
  EXPECT_EQ(state.mode, S_IFREG | 0640U);
  EXPECT_EQ(object.error(), 0);
  acl::List list;
  list.complete = true;
  EXPECT_EQ(object.setAcl(&list), -1);
  EXPECT_EQ(object.error(), EOPNOTSUPP);
}

TEST(BufferedObject, UnreadableListFails) {
  BufferedAttributes attributes(kList);
  const FileAclWorld world({kList, true, nullptr}, attributes);
  attributes.state().mode = S_IFREG | 0600;
  attributes.state().list.error = EIO;
  BufferedObject object(attributes, world.acls, true);
  EXPECT_EQ(object.getAcl(), nullptr);
  EXPECT_EQ(object.error(), EIO);
}

}  // namespace
}  // namespace paddock::copyprivs
