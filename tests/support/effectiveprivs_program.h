// effectiveprivs in a tree of a test's own, with accounts and objects to judge. Needs root.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "base/guid.h"
#include "platform/directory.h"
#include "platform/linux/acl/ace_entry.h"
#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/sid_forms.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/linux/privileges/mode_tail.h"
#include "privileges/bundle_programs.h"
#include "support/file_acl_world.h"
#include "support/run_to_end.h"
#include "support/temporary_folder.h"

namespace paddock::effectiveprivs {

class InstalledProgram : public ::testing::Test {
 protected:
  // Ids that no account of the host has.
  static constexpr std::uint32_t kAnna = 2'021'000'001;
  static constexpr std::uint32_t kBert = 2'021'000'002;
  static constexpr std::uint32_t kStaff = 2'022'000'001;
  static constexpr std::uint32_t kCrew = 2'022'000'002;
  static constexpr std::uint32_t kNobodys = 2'022'000'009;

  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root may give files away";
    if (const std::string why = whyNoLists(folder_.path()); !why.empty()) GTEST_SKIP() << why;
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
    root_ = folder_.path("tree");
    program_ = root_ + kEffectivePrivsPath;
    std::filesystem::create_directories(std::filesystem::path(program_).parent_path());
    std::filesystem::create_directories(root_ + "/var/lib/paddock");
    std::filesystem::copy_file(EFFECTIVEPRIVS_PROGRAM, program_);
  }

  // The records of "/Local".
  void addUser(const std::string& name, std::uint32_t uid,
               const std::optional<std::uint32_t>& gid = std::nullopt) const {
    Dictionary attributes{{schema::kUniqueID, std::to_string(uid)}};
    if (gid) attributes.set(schema::kPrimaryGroupID, std::to_string(*gid));
    addRecord(name, schema::kUsers, attributes);
  }
  void addGroup(const std::string& name, std::uint32_t gid,
                const std::vector<std::string>& members = {},
                const std::vector<std::uint32_t>& nested = {}) const {
    Dictionary attributes{{schema::kPrimaryGroupID, std::to_string(gid)}};
    Array names(members.begin(), members.end());
    if (!names.empty()) attributes.set(schema::kGroupMembership, names);
    Array groups;
    for (const std::uint32_t one : nested)
      groups.emplace_back(guidText(computedGuid({PrincipalType::group, one})));
    if (!groups.empty()) attributes.set(schema::kNestedGroups, groups);
    addRecord(name, schema::kGroups, attributes);
  }
  void addRecord(const std::string& name, const char* type, const Dictionary& attributes) const {
    LinuxDirectoryService directory({.databasePath = root_ + "/var/lib/paddock/directory.sqlite"});
    directory.openLocal()->localNode()->newRecord(name, type)->setAttributesAndValues(attributes);
  }

  std::string makeFile(const std::string& name, mode_t mode, std::uint32_t uid = 0,
                       std::uint32_t gid = kNobodys) const {
    writeWholeFile(folder_.path(name), "x");
    return prepared(name, mode, uid, gid);
  }
  std::string makeFolder(const std::string& name, mode_t mode, std::uint32_t uid = 0,
                         std::uint32_t gid = kNobodys) const {
    std::filesystem::create_directory(folder_.path(name));
    return prepared(name, mode, uid, gid);
  }

  static nt_acl::Ace allow(const nt_acl::Sid& sid, acl::Permission permissions,
                           std::uint8_t flags = 0) {
    return {nt_acl::kAllowed, flags, nt_acl::maskOf(permissions), sid, {}};
  }
  static nt_acl::Ace deny(const nt_acl::Sid& sid, acl::Permission permissions) {
    return {nt_acl::kDenied, 0, nt_acl::maskOf(permissions), sid, {}};
  }
  static nt_acl::Sid user(std::uint32_t uid) { return nt_acl::unixSid({PrincipalType::user, uid}); }
  static nt_acl::Sid group(std::uint32_t gid) {
    return nt_acl::unixSid({PrincipalType::group, gid});
  }

  // A list that was made here, with the tail of the object's mode.
  static void setList(const std::string& path, const std::vector<nt_acl::Ace>& entries) {
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    setCompleteList(path, nt_acl::withTail(entries, {status.st_uid, status.st_gid,
                                                     posix_acl::classesOf(status.st_mode),
                                                     S_ISDIR(status.st_mode)}));
  }
  // As an SMB server leaves one.
  static void setCompleteList(const std::string& path, const std::vector<nt_acl::Ace>& entries) {
    nt_acl::Descriptor descriptor;
    descriptor.owner = user(0);
    descriptor.group = group(0);
    descriptor.list = entries;
    ASSERT_EQ(setAttribute(path, FileAclOptions{}.attribute, nt_acl::encode(descriptor).value()),
              0);
  }

  EndedProgram run(std::vector<std::string> words) const {
    words.insert(words.begin(), program_);
    return runProgram(words);
  }
  EndedProgram ask(const std::string& path, std::uint32_t uid) const {
    return run({"-p", path, "-u", std::to_string(uid)});
  }
  // What it prints for a question that has an answer.
  std::string answer(const std::string& path, std::uint32_t uid) const {
    const EndedProgram ended = ask(path, uid);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.error, "");
    return ended.output;
  }
  // What it says of a question that has none.
  static std::string failureOf(const EndedProgram& ended, int status = 1) {
    EXPECT_EQ(ended.status, status);
    EXPECT_EQ(ended.output, "");
    return ended.error;
  }

  TestFolder folder_;
  std::string root_;
  std::string program_;

 private:
  std::string prepared(const std::string& name, mode_t mode, std::uint32_t uid,
                       std::uint32_t gid) const {
    const std::string path = folder_.path(name);
    EXPECT_EQ(::chown(path.c_str(), uid, gid), 0);
    EXPECT_EQ(::chmod(path.c_str(), mode), 0);
    return path;
  }
};

}  // namespace paddock::effectiveprivs
