// The text-file services that the contract suite runs on, each with a folder to make objects in.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "directory_subject.h"
#include "platform/linux/files/linux_text_files.h"
#include "platform/testing/in_memory_text_files.h"

namespace paddock::contract {

using TextObject = InMemoryTextFiles::Object;

class TextFilesSubject {
 public:
  virtual ~TextFilesSubject() = default;
  virtual TextFiles& service() = 0;
  // The path of a name in the folder.
  virtual std::string path(const std::string& name) const = 0;
  virtual void make(const std::string& name, const TextObject& object) = 0;
  // The object itself, links not followed.
  virtual std::optional<TextObject> find(const std::string& name) const = 0;
  // How many objects the folder holds.
  virtual std::size_t objectCount() const = 0;
};

class InMemoryTextFilesSubject final : public TextFilesSubject {
 public:
  InMemoryTextFilesSubject() { files_.set(path(""), {InMemoryTextFiles::Kind::folder, "", 0755}); }
  TextFiles& service() override { return files_; }
  std::string path(const std::string& name) const override {
    return name.empty() ? "/folder" : "/folder/" + name;
  }
  void make(const std::string& name, const TextObject& object) override {
    files_.set(path(name), object);
  }
  std::optional<TextObject> find(const std::string& name) const override {
    const TextObject* object = files_.find(path(name));
    return object == nullptr ? std::nullopt : std::optional(*object);
  }
  std::size_t objectCount() const override { return files_.countBelow(path("")); }

 private:
  InMemoryTextFiles files_;
};

class LinuxTextFilesSubject final : public TextFilesSubject {
 public:
  TextFiles& service() override { return files_; }
  std::string path(const std::string& name) const override { return folder_.path(name); }
  void make(const std::string& name, const TextObject& object) override;
  std::optional<TextObject> find(const std::string& name) const override;
  std::size_t objectCount() const override {
    const std::filesystem::directory_iterator entries(folder_.path(""));
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
  }

 private:
  LinuxTextFiles files_;
  TestFolder folder_;
};

inline void LinuxTextFilesSubject::make(const std::string& name, const TextObject& object) {
  const std::string at = path(name);
  switch (object.kind) {
    case InMemoryTextFiles::Kind::file:
      std::ofstream(at, std::ios::binary) << object.contents;
      break;
    case InMemoryTextFiles::Kind::folder:
      std::filesystem::create_directory(at);
      break;
    case InMemoryTextFiles::Kind::link:
      std::filesystem::create_symlink(object.contents, at);
      return;
    case InMemoryTextFiles::Kind::other:
      if (::mkfifo(at.c_str(), 0600) != 0) throw std::runtime_error("mkfifo " + at);
      break;
  }
  if (::geteuid() == 0 && ::chown(at.c_str(), object.owner, object.group) != 0) {
    throw std::runtime_error("chown " + at);
  }
  if (::chmod(at.c_str(), object.mode) != 0) throw std::runtime_error("chmod " + at);
}

inline std::optional<TextObject> LinuxTextFilesSubject::find(const std::string& name) const {
  struct stat status {};
  if (::lstat(path(name).c_str(), &status) != 0) return std::nullopt;
  TextObject object;
  object.mode = status.st_mode & 07777U;
  object.owner = status.st_uid;
  object.group = status.st_gid;
  if (S_ISREG(status.st_mode)) {
    std::ifstream stream(path(name), std::ios::binary);
    object.contents.assign(std::istreambuf_iterator<char>(stream), {});
  } else if (S_ISDIR(status.st_mode)) {
    object.kind = InMemoryTextFiles::Kind::folder;
  } else if (S_ISLNK(status.st_mode)) {
    object.kind = InMemoryTextFiles::Kind::link;
    object.mode = 0644;
    object.contents = std::filesystem::read_symlink(path(name)).string();
  } else {
    object.kind = InMemoryTextFiles::Kind::other;
  }
  return object;
}

}  // namespace paddock::contract
