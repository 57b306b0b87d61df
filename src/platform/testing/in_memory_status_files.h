// Status files in memory. A path that is there without a dictionary is a file that holds none: an
// empty one, which `remove` leaves alone.
#pragma once

#include <cerrno>
#include <map>
#include <string>
#include <utility>

#include "platform/status_files.h"
#include "platform/testing/call_rules.h"

namespace paddock {

class InMemoryStatusFiles : public StatusFiles {
 public:
  int create(const std::string& pathTemplate, std::string& path) override {
    path.clear();
    if (createError_ != 0) return createError_;
    std::string number = std::to_string(++made_);
    number.insert(0, 6 - number.size(), '0');
    path = pathTemplate.substr(0, pathTemplate.size() - number.size()) + number;
    files_[path] = std::nullopt;
    return 0;
  }
  bool exists(const std::string& path) override { return files_.contains(path); }
  std::optional<Dictionary> read(const std::string& path) override {
    const auto file = files_.find(path);
    return file != files_.end() ? file->second : std::nullopt;
  }
  int remove(const std::string& path) override {
    if (!read(path)) return EPERM;
    files_.erase(path);
    return 0;
  }
  int discard(const std::string& path) override {
    const auto file = files_.find(path);
    if (file == files_.end() || file->second) return EPERM;
    files_.erase(file);
    return 0;
  }

  // What the program that the file was made for writes into it; nothing: no dictionary.
  void write(const std::string& path, std::optional<Dictionary> contents) {
    files_[path] = std::move(contents);
  }
  void erase(const std::string& path) { files_.erase(path); }
  void setCreateError(int error) { createError_ = error; }

 private:
  std::map<std::string, std::optional<Dictionary>> files_;
  int made_ = 0;
  int createError_ = 0;
};

// Status files. A failure is the errno or no dictionary, nothing made or removed; `exists` says
// false. Traces leave them out.
class ForwardingStatusFiles final : public Forwarder<StatusFiles> {
 public:
  using Forwarder::Forwarder;
  int create(const std::string& pathTemplate, std::string& path) override {
    path.clear();
    const int error = ask("statusFiles.create");
    return error != 0 ? error : wrapped().create(pathTemplate, path);
  }
  bool exists(const std::string& path) override {
    return ask("statusFiles.exists") == 0 && wrapped().exists(path);
  }
  std::optional<Dictionary> read(const std::string& path) override {
    return ask("statusFiles.read") != 0 ? std::nullopt : wrapped().read(path);
  }
  int remove(const std::string& path) override {
    const int error = ask("statusFiles.remove");
    return error != 0 ? error : wrapped().remove(path);
  }
  int discard(const std::string& path) override {
    const int error = ask("statusFiles.discard");
    return error != 0 ? error : wrapped().discard(path);
  }
};

}  // namespace paddock
