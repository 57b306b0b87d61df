// An installed copyprivs in a tree of its own, and folders for it to process.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/sid_forms.h"
#include "platform/linux/privileges/mode_tail.h"
#include "support/file_acl_world.h"
#include "support/run_to_end.h"
#include "support/temporary_folder.h"
#include "wire/property_list.h"

namespace paddock::copyprivs {

inline constexpr const char* kListAttribute = "security.NTACL";

inline nt_acl::Ace aceOf(std::uint32_t uid, std::uint8_t flags, std::uint32_t mask,
                         std::uint8_t type = nt_acl::kAllowed) {
  // SYNCHRONIZE, which an entry that allows something has on disk.
  constexpr std::uint32_t kSynchronize = 0x00100000;
  if (type == nt_acl::kAllowed) mask |= kSynchronize;
  return {type, flags, mask, nt_acl::unixSid({PrincipalType::user, uid}), {}};
}

// A value of the attribute that holds a complete list.
inline std::string completeList(std::vector<nt_acl::Ace> entries, std::uint32_t uid = 0,
                                std::uint32_t gid = 0) {
  nt_acl::Descriptor descriptor;
  descriptor.owner = nt_acl::unixSid({PrincipalType::user, uid});
  descriptor.group = nt_acl::unixSid({PrincipalType::group, gid});
  descriptor.list = std::move(entries);
  return nt_acl::encode(descriptor).value();
}

struct stat inline lstatOf(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) throw std::runtime_error("lstat " + path);
  return status;
}

inline mode_t permissionsOf(const std::string& path) { return lstatOf(path).st_mode & 07777; }

// A value that holds a list for the object as it is, not complete.
inline std::string listFor(const std::string& path, std::vector<nt_acl::Ace> entries) {
  const struct stat status = lstatOf(path);
  return completeList(nt_acl::withTail(std::move(entries), {status.st_uid, status.st_gid,
                                                            posix_acl::classesOf(status.st_mode),
                                                            S_ISDIR(status.st_mode)}),
                      status.st_uid, status.st_gid);
}

inline nt_acl::SplitList entriesOf(const std::string& path) {
  const auto value = attributeOf(path, kListAttribute);
  if (!value) return {{}, false};
  auto descriptor = nt_acl::decode(*value);
  if (!descriptor) throw std::runtime_error("an ACL that does not decode: " + path);
  return nt_acl::withoutTail(std::move(*descriptor->list), S_ISDIR(lstatOf(path).st_mode));
}

class TestTree {
 public:
  // `data` is a folder of the file system that is worked on.
  explicit TestTree(std::string data) : data_(std::move(data)) {
    namespace fs = std::filesystem;
    const std::string folder =
        root_.path("usr/share/paddockd/bundles/paddock_sharing.bundle/Contents");
    fs::create_directories(folder);
    std::error_code failed;
    fs::create_hard_link(COPYPRIVS_PROGRAM, folder + "/copyprivs", failed);
    if (failed) fs::copy_file(COPYPRIVS_PROGRAM, folder + "/copyprivs");
    fs::create_directories(root_.path("etc/paddock"));
    fs::create_directories(root_.path("var/lib/paddock"));
    fs::create_directories(root_.path("tmp"));
    fs::create_directory(folder_());
    ::chmod(folder_().c_str(), 0755);
  }

  // The starting folder, and what is in it.
  std::string path(const std::string& name = {}) const {
    return name.empty() ? folder_() : folder_() + "/" + name;
  }
  std::string program() const {
    return root_.path("usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/copyprivs");
  }
  std::string statusFile() const { return root_.path("tmp/status"); }
  std::string root(const std::string& name) const { return root_.path(name); }
  void configure(const std::string& text) const {
    writeWholeFile(root_.path("etc/paddock/paddockd.toml"), text);
  }

  void makeFile(const std::string& name, mode_t mode = 0644, std::uint32_t uid = 0,
                std::uint32_t gid = 0) const {
    writeWholeFile(path(name), "content");
    own(name, mode, uid, gid);
  }
  void makeFolder(const std::string& name, mode_t mode = 0755, std::uint32_t uid = 0,
                  std::uint32_t gid = 0) const {
    std::filesystem::create_directories(path(name));
    own(name, mode, uid, gid);
  }
  void own(const std::string& name, mode_t mode, std::uint32_t uid, std::uint32_t gid) const {
    if (::chown(path(name).c_str(), uid, gid) != 0 || ::chmod(path(name).c_str(), mode) != 0)
      throw std::runtime_error("cannot own " + path(name));
  }
  void setList(const std::string& name, std::vector<nt_acl::Ace> entries) const {
    setValue(name, listFor(path(name), std::move(entries)));
  }
  void setValue(const std::string& name, const std::string& value,
                const char* attribute = kListAttribute) const {
    const int error = setAttribute(path(name), attribute, value);
    if (error != 0) throw std::runtime_error("cannot set the ACL of " + path(name));
  }

  std::vector<std::string> wordsFor(const std::string& mask) const {
    return {program(), "-p", path(), "-f", mask, "-s", statusFile()};
  }
  EndedProgram run(const std::string& mask, const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words = wordsFor(mask);
    words.insert(words.end(), more.begin(), more.end());
    return runProgram(words);
  }
  Dictionary status() const {
    std::string error;
    const auto value = wire::parsePropertyList(readWholeFile(statusFile()), error);
    if (!value || value->dictionary() == nullptr) throw std::runtime_error("status: " + error);
    return *value->dictionary();
  }

 private:
  std::string folder_() const { return data_ + "/folder"; }

  const TestFolder root_;
  const std::string data_;
};

}  // namespace paddock::copyprivs
