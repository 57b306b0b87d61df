// Files and folders for the contracts of the services that read and change them.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include "platform/acl.h"
#include "platform/file_attributes.h"
#include "platform/linux/accounts/linux_accounts.h"
#include "platform/linux/privileges/linux_acl.h"
#include "platform/linux/privileges/linux_file_attributes.h"
#include "platform/linux/process/case_fold.h"
#include "platform/testing/in_memory_accounts.h"
#include "platform/testing/in_memory_acl.h"
#include "platform/testing/in_memory_directory.h"
#include "platform/testing/in_memory_file_tree.h"
#include "support/file_acl_world.h"
#include "support/temporary_folder.h"

namespace paddock::contract {

class FileSubject {
 public:
  virtual ~FileSubject() = default;
  virtual FileAttributeService& attributes() = 0;
  virtual acl::AclService& acl() = 0;
  virtual PrivilegedObjects& objects() = 0;
  // Why this subject's tests cannot run here; empty when they can.
  virtual std::string whyNot() const { return ""; }

  // A path for an object of the subject's own.
  virtual std::string path(const std::string& name) const = 0;
  // Objects of root's, files of mode 0644 and folders of mode 0755.
  virtual void makeFile(const std::string& path) = 0;
  virtual void makeFolder(const std::string& path) = 0;
  virtual void makeFifo(const std::string& path) = 0;
  virtual void makeLink(const std::string& path, const std::string& target) = 0;
  // A link of daemon's, who is an ordinary user.
  virtual void makeLinkOfDaemon(const std::string& path, const std::string& target) = 0;
  // Makes an owner and a group of the object that have no names.
  virtual void giveToNobody(const std::string& path) = 0;
  // Stores an ACL that does not decode.
  virtual void spoilAcl(const std::string& path) = 0;
  // The uid and the gid of the object.
  virtual std::pair<std::uint32_t, std::uint32_t> owners(const std::string& path) = 0;
};

class InMemoryFileSubject final : public FileSubject {
 public:
  InMemoryFileSubject() {
    accounts_.addUser("daemon", 1);
    accounts_.addGroup("daemon", 1);
  }

  FileAttributeService& attributes() override { return attributes_; }
  acl::AclService& acl() override { return acl_; }
  PrivilegedObjects& objects() override { return objects_; }

  std::string path(const std::string& name) const override { return "/folder/" + name; }
  void makeFile(const std::string& path) override {
    tree_.set(path, {"root", "root", 0644, "regular"});
  }
  void makeFolder(const std::string& path) override { tree_.setFolder(path); }
  void makeFifo(const std::string& path) override {
    tree_.set(path, {"root", "root", 0644, "fifo"});
  }
  void makeLink(const std::string& path, const std::string& target) override {
    tree_.setLink(path, target);
  }
  void makeLinkOfDaemon(const std::string& path, const std::string& target) override {
    tree_.setLink(path, target, "daemon");
  }
  void giveToNobody(const std::string& path) override {
    FileAttributes attributes = tree_.attributes(path);
    attributes.ownerName.reset();
    attributes.groupName.reset();
    tree_.set(path, attributes);
  }
  void spoilAcl(const std::string& path) override {
    tree_.setAcl(path, {.entries = {}, .undecodable = true});
  }
  std::pair<std::uint32_t, std::uint32_t> owners(const std::string& path) override {
    return {objects_.owners(path).uid, objects_.owners(path).gid};
  }

 private:
  InMemoryFileTree tree_;
  InMemoryAccounts accounts_;
  InMemoryFileAttributes attributes_{tree_, accounts_};
  InMemoryAcl acl_{tree_};
  InMemoryPrivilegedObjects objects_{tree_, acl_};
};

class LinuxFileSubject final : public FileSubject {
 public:
  std::string whyNot() const override {
    if (::geteuid() != 0) return "giving files to other accounts needs root";
    return whyNoLists(folder_.path());
  }

  FileAttributeService& attributes() override { return attributes_; }
  acl::AclService& acl() override { return acl_; }
  PrivilegedObjects& objects() override { return objects_; }

  std::string path(const std::string& name) const override { return folder_.path(name); }
  void makeFile(const std::string& path) override {
    writeWholeFile(path, "");
    require(::chmod(path.c_str(), 0644));
  }
  void makeFolder(const std::string& path) override {
    require(::mkdir(path.c_str(), 0755));
    require(::chmod(path.c_str(), 0755));
  }
  void makeFifo(const std::string& path) override { require(::mkfifo(path.c_str(), 0644)); }
  void makeLink(const std::string& path, const std::string& target) override {
    require(::symlink(target.c_str(), path.c_str()));
  }
  void makeLinkOfDaemon(const std::string& path, const std::string& target) override {
    makeLink(path, target);
    require(::lchown(path.c_str(), 1, 1));
  }
  void giveToNobody(const std::string& path) override {
    constexpr uid_t kNobodysId = 2111222333;
    require(::chown(path.c_str(), kNobodysId, kNobodysId));
  }
  void spoilAcl(const std::string& path) override {
    require(setAttribute(path, FileAclOptions{}.attribute, "spoilt"));
  }
  std::pair<std::uint32_t, std::uint32_t> owners(const std::string& path) override {
    struct stat status {};
    require(::stat(path.c_str(), &status));
    return {status.st_uid, status.st_gid};
  }

 private:
  static void require(int result) {
    if (result != 0) throw std::system_error(errno, std::generic_category());
  }

  TestFolder folder_;
  InMemoryDirectory directory_{caseFold};
  LinuxAccounts accounts_{directory_};
  FileAclWorld world_;
  LinuxFileAttributes attributes_{accounts_, world_.acls};
  LinuxAcl acl_{world_.acls};
  LinuxPrivilegedObjects objects_{world_.acls};
};

struct FileKind {
  const char* name;
  std::unique_ptr<FileSubject> (*make)();
};
inline const FileKind kFileKinds[] = {
    {"InMemory", [] { return std::unique_ptr<FileSubject>(new InMemoryFileSubject); }},
    {"Linux", [] { return std::unique_ptr<FileSubject>(new LinuxFileSubject); }},
};

}  // namespace paddock::contract
