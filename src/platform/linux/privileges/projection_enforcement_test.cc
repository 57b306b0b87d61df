// Whom the kernel lets in: random lists on real files, opened by processes of other users, against
// a model that knows nothing of the projection. Needs root.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <random>
#include <set>
#include <sstream>

#include "platform/linux/privileges/file_acls.h"
#include "support/file_acl_world.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

constexpr unsigned kRead = 4;
constexpr unsigned kWrite = 2;
constexpr unsigned kExecute = 1;
constexpr std::array<unsigned, 3> kBits{kRead, kWrite, kExecute};
// Reading and writing at once, besides the three bits.
constexpr unsigned kBothAtOnce = 8;

constexpr uid_t kOwner = 2101;
constexpr gid_t kGroup = 3101;
constexpr acl::Flag kInheritable = acl::kFileInherit | acl::kDirectoryInherit;

enum class Kind { user, group, everyone };

struct Line {
  bool allow = false;
  Kind kind = Kind::user;
  std::uint32_t id = 0;
  unsigned bits = 0;
};

struct Person {
  uid_t uid = 0;
  std::vector<gid_t> groups;

  bool isIn(gid_t gid) const {
    return std::find(groups.begin(), groups.end(), gid) != groups.end();
  }
};

struct Case {
  std::string path;
  std::vector<Line> lines;
  bool complete = false;
  mode_t mode = 0;

  unsigned group() const { return (mode >> 3U) & 7U; }
  unsigned others() const { return mode & 7U; }
};

std::string textOf(const Case& one) {
  std::ostringstream text;
  text << one.path << (one.complete ? ", complete" : "") << ", mode " << std::oct << one.mode;
  for (const Line& line : one.lines)
    text << (line.allow ? ", allow " : ", deny ") << "ugE"[static_cast<int>(line.kind)] << std::dec
         << line.id << ":" << line.bits;
  return text.str();
}

// The model.

bool concerns(const Line& line, const Person& person) {
  if (line.kind == Kind::everyone) return true;
  return line.kind == Kind::user ? line.id == person.uid : person.isIn(line.id);
}

// What the entries alone say of one bit.
std::optional<bool> decided(const Case& one, const Person& person, unsigned bit) {
  for (const Line& line : one.lines)
    if ((line.bits & bit) != 0 && concerns(line, person)) return line.allow;
  return std::nullopt;
}

bool isNamed(const Case& one, const Person& person) {
  return std::any_of(one.lines.begin(), one.lines.end(), [&](const Line& line) {
    return line.kind == Kind::user && line.id == person.uid;
  });
}

std::size_t namedGroups(const Case& one, const Person& person) {
  std::set<std::uint32_t> groups;
  for (const Line& line : one.lines)
    if (line.kind == Kind::group && person.isIn(line.id)) groups.insert(line.id);
  return groups.size();
}

bool deniesGroups(const Case& one) {
  return std::any_of(one.lines.begin(), one.lines.end(),
                     [](const Line& line) { return !line.allow && line.kind != Kind::user; });
}

// What list and mode give, entries first.
unsigned entitled(const Case& one, const Person& person, unsigned fallback) {
  unsigned bits = 0;
  for (const unsigned bit : kBits)
    if (decided(one, person, bit).value_or((fallback & bit) != 0)) bits |= bit;
  return bits;
}

unsigned modeOf(const Case& one, const Person& person) {
  return person.isIn(kGroup) ? one.group() : one.others();
}

// What one person could do, against what he should be able to do.
void judge(const Case& one, const Person& person, unsigned could) {
  SCOPED_TRACE(textOf(one) + ": " + std::to_string(person.uid) + " could " + std::to_string(could));
  const unsigned bits = could & 7U;
  const auto expectExactly = [&](unsigned wanted) {
    EXPECT_EQ(bits, wanted);
    EXPECT_EQ((could & kBothAtOnce) != 0, (wanted & 6U) == 6U);
  };
  if (person.uid == kOwner) return expectExactly(one.mode >> 6U);
  const unsigned mode = modeOf(one, person);
  if (isNamed(one, person)) return expectExactly(entitled(one, person, one.complete ? 0 : mode));
  const std::size_t groups = namedGroups(one, person);
  if (groups == 0) return expectExactly(mode);
  if (groups == 1 && !person.isIn(kGroup))
    return expectExactly(entitled(one, person, one.complete ? 0 : mode));
  // In several of the groups, a POSIX ACL adds up what each of them has, one at a time.
  const unsigned fallback = one.complete && !person.isIn(kGroup) ? 0 : mode;
  const unsigned wanted = entitled(one, person, fallback);
  EXPECT_EQ(wanted & ~bits, 0U) << "is kept out";
  const bool groupHasLess = !one.complete && (one.others() & ~one.group()) != 0;
  if (!deniesGroups(one) && !groupHasLess) {
    EXPECT_EQ(bits & ~wanted, 0U) << "is let in";
  }
}

// The processes.

bool opens(const std::string& path, int flags) {
  return FileDescriptor(::open(path.c_str(), flags | O_CLOEXEC)).get() >= 0;
}

unsigned tried(const std::string& path) {
  unsigned could = 0;
  if (opens(path, O_RDONLY)) could |= kRead;
  if (opens(path, O_WRONLY)) could |= kWrite;
  if (opens(path, O_RDWR)) could |= kBothAtOnce;
  if (::access(path.c_str(), X_OK) == 0) could |= kExecute;
  return could;
}

unsigned triedFolder(const std::string& path) {
  unsigned could = 0;
  if (opens(path, O_RDONLY | O_DIRECTORY)) could |= kRead;
  if (::access(path.c_str(), W_OK) == 0) could |= kWrite;
  if (::access(path.c_str(), W_OK | R_OK) == 0) could |= kBothAtOnce;
  if (::access(path.c_str(), X_OK) == 0) could |= kExecute;
  return could;
}

bool become(const Person& person) {
  return ::setgroups(person.groups.size(), person.groups.data()) == 0 &&
         ::setgid(person.groups.front()) == 0 && ::setuid(person.uid) == 0;
}

// What the person can do with each of the files, found out by a process of his.
std::string triedBy(const Person& person, const std::vector<Case>& cases,
                    unsigned (*tryOne)(const std::string&)) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return "";
  const FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  const pid_t child = ::fork();
  if (child == 0) {
    if (!become(person)) ::_exit(1);
    std::string results;
    for (const Case& one : cases) results.push_back(static_cast<char>(tryOne(one.path)));
    ::_exit(::write(writing.get(), results.data(), results.size()) ==
                    static_cast<ssize_t>(results.size())
                ? 0
                : 1);
  }
  writing.reset();
  std::string results(cases.size(), '\0');
  const ssize_t size = ::read(reading.get(), results.data(), results.size());
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  results.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
  return results;
}

class ProjectionEnforcement : public ::testing::TestWithParam<unsigned> {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "becoming other users needs root";
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
    if (const std::string why = whyNoLists(folder_.path()); !why.empty()) GTEST_SKIP() << why;
    if (const std::string why = whyNoPosixAcls(folder_.path()); !why.empty()) GTEST_SKIP() << why;
    makePeople();
  }

  unsigned below(unsigned limit) {
    return std::uniform_int_distribution<unsigned>(0, limit - 1)(random_);
  }

  // The owner, and others in up to three groups each; the last two in none that lists name.
  void makePeople() {
    people_.push_back({kOwner, {kGroup, 3102}});
    for (uid_t uid = kOwner + 1; uid < kOwner + 9; ++uid) {
      Person person{uid, {static_cast<gid_t>(3101 + below(5))}};
      for (unsigned more = below(3); more > 0; --more)
        if (const gid_t gid = 3101 + below(4); !person.isIn(gid)) person.groups.push_back(gid);
      people_.push_back(person);
    }
    people_.push_back({kOwner + 9, {3999}});
    people_.push_back({kOwner + 10, {kGroup}});
    for (const Person& person : people_) {
      auto& groups = world_.groups.groups[person.uid];
      groups.assign(person.groups.begin(), person.groups.end());
    }
  }

  Line randomLine() {
    Line line;
    line.allow = below(3) != 0;
    const unsigned kind = below(10);
    line.kind = kind < 5 ? Kind::user : kind < 9 ? Kind::group : Kind::everyone;
    line.id = line.kind == Kind::user ? kOwner + below(6) : 3101 + below(3);
    line.bits = 1 + below(7);
    return line;
  }

  Case randomCase(const std::string& name) {
    Case one;
    one.path = folder_.path(name);
    one.complete = below(4) == 0;
    one.mode = below(512);
    for (unsigned count = 1 + below(6); count > 0; --count) one.lines.push_back(randomLine());
    return one;
  }

  acl::List listOf(const Case& one, acl::Flag flags) {
    acl::List list;
    list.complete = one.complete;
    for (const Line& line : one.lines) {
      auto entry = std::make_unique<acl::Entry>();
      entry->tag = line.allow ? acl::kExtendedAllow : acl::kExtendedDeny;
      entry->qualifier = guidOf(line);
      entry->permset.permissions = ((line.bits & kRead) != 0 ? acl::kReadData : 0U) |
                                   ((line.bits & kWrite) != 0 ? acl::kWriteData : 0U) |
                                   ((line.bits & kExecute) != 0 ? acl::kExecute : 0U);
      entry->flagset.flags = flags;
      list.entries.push_back(std::move(entry));
    }
    return list;
  }
  Guid guidOf(const Line& line) {
    if (line.kind == Kind::user) return computedGuid({PrincipalType::user, line.id});
    if (line.kind == Kind::group) return computedGuid({PrincipalType::group, line.id});
    Guid everyone;
    EXPECT_EQ(world_.sids.guidFor({1, {0}}, everyone), 0);
    return everyone;
  }

  void write(const Case& one, acl::Flag flags) {
    ASSERT_EQ(::chown(one.path.c_str(), kOwner, kGroup), 0);
    ASSERT_EQ(::chmod(one.path.c_str(), one.mode), 0);
    FileDescriptor object;
    ASSERT_EQ(openObject(one.path, object), 0);
    ASSERT_EQ(world_.acls.writeTo(object.get(), listOf(one, flags)), 0);
  }

  void judgeAll(const std::vector<Case>& cases, unsigned (*tryOne)(const std::string&)) {
    for (const Person& person : people_) {
      const std::string results = triedBy(person, cases, tryOne);
      ASSERT_EQ(results.size(), cases.size());
      for (std::size_t i = 0; i < cases.size(); ++i)
        judge(cases[i], person, static_cast<unsigned char>(results[i]));
    }
  }

  TestFolder folder_;
  std::mt19937 random_{GetParam()};
  FileAclWorld world_;
  std::vector<Person> people_;
};
INSTANTIATE_TEST_SUITE_P(Seeds, ProjectionEnforcement, ::testing::Range(1U, 7U));

TEST_P(ProjectionEnforcement, KernelGrantsExactlyWhatListGrants) {
  std::vector<Case> cases;
  for (int i = 0; i < 200; ++i) {
    cases.push_back(randomCase("file" + std::to_string(i)));
    writeWholeFile(cases.back().path, "");
    write(cases.back(), 0);
    if (HasFatalFailure()) return;
  }
  judgeAll(cases, tried);
}

TEST_P(ProjectionEnforcement, FolderAccessFollowsSameRules) {
  std::vector<Case> cases;
  for (int i = 0; i < 100; ++i) {
    cases.push_back(randomCase("folder" + std::to_string(i)));
    ASSERT_EQ(::mkdir(cases.back().path.c_str(), 0700), 0);
    write(cases.back(), 0);
    if (HasFatalFailure()) return;
  }
  judgeAll(cases, triedFolder);
}

TEST_P(ProjectionEnforcement, NewObjectsGrantWhatInheritableEntriesGrant) {
  std::vector<Case> files;
  std::vector<Case> folders;
  for (int i = 0; i < 100; ++i) {
    Case one = randomCase("parent" + std::to_string(i));
    ASSERT_EQ(::mkdir(one.path.c_str(), 0700), 0);
    write(one, kInheritable | (below(2) == 0 ? acl::kOnlyInherit : 0U));
    if (HasFatalFailure()) return;
    const std::string parent = one.path;
    // Where nothing is made to be inherited by name, the mode is the process's affair.
    if (!posixAclOf(parent, posix_acl::kDefaultAttribute)) continue;
    one.mode |= 0700U;  // its maker's
    one.path = folder_.path("made-file" + std::to_string(i));
    ASSERT_EQ(::close(::open((parent + "/x").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0777)), 0);
    ASSERT_EQ(::rename((parent + "/x").c_str(), one.path.c_str()), 0);
    ASSERT_EQ(::lchown(one.path.c_str(), kOwner, kGroup), 0);
    files.push_back(one);
    one.path = folder_.path("made-folder" + std::to_string(i));
    ASSERT_EQ(::mkdir((parent + "/y").c_str(), 0777), 0);
    ASSERT_EQ(::rename((parent + "/y").c_str(), one.path.c_str()), 0);
    ASSERT_EQ(::lchown(one.path.c_str(), kOwner, kGroup), 0);
    folders.push_back(one);
  }
  ASSERT_GT(files.size(), 50U);
  judgeAll(files, tried);
  judgeAll(folders, triedFolder);
}

}  // namespace
}  // namespace paddock
