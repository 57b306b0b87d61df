// Text files in memory, with modes, owners, links and other kinds of objects.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/testing/call_rules.h"
#include "platform/text_file.h"

namespace paddock {

class InMemoryTextFiles : public TextFiles {
 public:
  enum class Kind { file, folder, link, other };
  struct Object {
    Kind kind = Kind::file;
    std::string contents;  // of a link: where it leads
    mode_t mode = 0644;
    uid_t owner = 0;
    gid_t group = 0;
    friend bool operator==(const Object&, const Object&) = default;
  };

  // The folders "/" and "/etc" are there.
  InMemoryTextFiles();

  using TextFiles::read;
  int read(const std::string& path, std::string& contents, FileIdentity& identity) override;
  int identify(const std::string& path, FileIdentity& identity) override;
  int replace(const std::string& path, const std::string& contents) override;
  int replaceKeeping(const std::string& path, const std::string& contents,
                     const FileIdentity* expected, Replacement& replacement) override;
  int copyOnce(const std::string& from, const std::string& to) override;
  int removeFile(const std::string& folder, const std::string& name) override;
  int namesBeginningWith(const std::string& folder, const std::string& prefix,
                         std::vector<std::string>& names) override;
  bool exists(const std::string& path) override;

  // Runs once, just before the next `replaceKeeping` replaces: simulates a concurrent process.
  void setBeforeReplacing(std::function<void()> action) { beforeReplacing_ = std::move(action); }
  // Runs once, while the next file that is not the expected one has given way and is not put back
  // yet. What it leaves at that path stays there.
  void setBeforePuttingBack(std::function<void()> action) {
    beforePuttingBack_ = std::move(action);
  }
  // Whether the files that give way are open for writing elsewhere.
  void setOpenForWriting(bool isOpen) { openForWriting_ = isOpen; }

  // Sets up an object, and the folders above it.
  void set(const std::string& path, const Object& object);
  void setFile(const std::string& path, const std::string& contents);
  void remove(const std::string& path);
  // The object itself, links not followed; null when nothing is there.
  const Object* find(const std::string& path) const;
  // A file's contents, links followed; empty when there is none.
  std::string contents(const std::string& path) const;

  // How many objects lie below a folder.
  std::size_t countBelow(const std::string& folder) const;
  // How often `replace` changed something.
  int replacements() const { return replacements_; }

 private:
  // Follows links at the last component. ENOENT with `path` set when nothing is there.
  int resolve(std::string& path) const;
  bool hasFolderOf(const std::string& path) const;
  FileIdentity identityOf(const std::string& resolved) const;
  void put(const std::string& path, const Object& object);
  bool isInState(const std::string& path, const FileIdentity& expected);
  int leaveToOthers(const std::string& path, Replacement& replacement);

  class GaveWay;

  std::map<std::string, Object> objects_;
  std::map<std::string, std::int64_t> changes_;  // when each object was last changed, counted
  std::int64_t changeCount_ = 0;
  std::function<void()> beforeReplacing_;
  std::function<void()> beforePuttingBack_;
  bool openForWriting_ = false;
  int replacements_ = 0;
};

// Text files. A failure is the errno, nothing read, written or removed; `exists` says false.
// Operations, with the path as subject: read, identify, replace (both kinds; detail: the contents),
// copyOnce (detail: the new path), exists; removeFile and namesBeginningWith (subject: the folder,
// detail: the name or its beginning).
class ForwardingTextFiles final : public Forwarder<TextFiles> {
 public:
  using Forwarder::Forwarder;
  using TextFiles::read;
  int read(const std::string& path, std::string& contents, FileIdentity& identity) override {
    contents.clear();
    identity = {};
    const int error = ask("textFiles.read", {"read", path, ""});
    return error != 0 ? error : wrapped().read(path, contents, identity);
  }
  int identify(const std::string& path, FileIdentity& identity) override {
    identity = {};
    const int error = ask("textFiles.identify", {"identify", path, ""});
    return error != 0 ? error : wrapped().identify(path, identity);
  }
  int replace(const std::string& path, const std::string& contents) override {
    const int error = ask("textFiles.replace", {"replace", path, contents});
    return error != 0 ? error : wrapped().replace(path, contents);
  }
  int replaceKeeping(const std::string& path, const std::string& contents,
                     const FileIdentity* expected, Replacement& replacement) override {
    replacement = {};
    const int error = ask("textFiles.replace", {"replace", path, contents});
    return error != 0 ? error : wrapped().replaceKeeping(path, contents, expected, replacement);
  }
  int copyOnce(const std::string& from, const std::string& to) override {
    const int error = ask("textFiles.copyOnce", {"copyOnce", from, to});
    return error != 0 ? error : wrapped().copyOnce(from, to);
  }
  int removeFile(const std::string& folder, const std::string& name) override {
    const int error = ask("textFiles.removeFile", {"removeFile", folder, name});
    return error != 0 ? error : wrapped().removeFile(folder, name);
  }
  int namesBeginningWith(const std::string& folder, const std::string& prefix,
                         std::vector<std::string>& names) override {
    names.clear();
    const int error = ask("textFiles.namesBeginningWith", {"namesBeginningWith", folder, prefix});
    return error != 0 ? error : wrapped().namesBeginningWith(folder, prefix, names);
  }
  bool exists(const std::string& path) override {
    return ask("textFiles.exists", {"exists", path, ""}) == 0 && wrapped().exists(path);
  }
};

}  // namespace paddock
