#include "platform/testing/in_memory_text_files.h"

#include <cerrno>

namespace paddock {

namespace {

constexpr int kLinkLimit = 40;
constexpr std::size_t kSizeLimit = std::size_t{64} << 20U;
constexpr mode_t kOwnerMayRead = 0400;

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

}  // namespace

InMemoryTextFiles::InMemoryTextFiles() {
  objects_["/"] = {Kind::folder, "", 0755};
  objects_["/etc"] = {Kind::folder, "", 0755};
}

bool InMemoryTextFiles::hasFolderOf(const std::string& path) const {
  const auto folder = objects_.find(folderOf(path));
  return folder != objects_.end() && folder->second.kind == Kind::folder;
}

int InMemoryTextFiles::resolve(std::string& path) const {
  for (int links = 0; links <= kLinkLimit; ++links) {
    if (!hasFolderOf(path)) return ENOENT;
    const auto object = objects_.find(path);
    if (object == objects_.end()) return ENOENT;
    if (object->second.kind != Kind::link) return 0;
    const std::string& target = object->second.contents;
    std::string from = target.front() == '/' ? "" : folderOf(path).append("/");
    path = from.append(target);
  }
  return ELOOP;
}

int InMemoryTextFiles::read(const std::string& path, std::string& contents,
                            FileIdentity& identity) {
  contents.clear();
  identity = {};
  std::string resolved = path;
  if (const int error = resolve(resolved); error != 0) return error;
  const Object& object = objects_.at(resolved);
  if (object.kind == Kind::folder) return EISDIR;
  if (object.kind != Kind::file) return EINVAL;
  if ((object.mode & kOwnerMayRead) == 0) return EACCES;
  if (object.contents.size() > kSizeLimit) return EFBIG;
  contents = object.contents;
  identity = identityOf(resolved);
  return 0;
}

FileIdentity InMemoryTextFiles::identityOf(const std::string& resolved) const {
  const auto change = changes_.find(resolved);
  const std::int64_t when = change == changes_.end() ? 0 : change->second;
  return {1,   static_cast<std::uint64_t>(when), objects_.at(resolved).contents.size(), when, when,
          true};
}

int InMemoryTextFiles::identify(const std::string& path, FileIdentity& identity) {
  identity = {};
  std::string resolved = path;
  if (const int error = resolve(resolved); error != 0) return error;
  identity = identityOf(resolved);
  return 0;
}

void InMemoryTextFiles::put(const std::string& path, const Object& object) {
  objects_[path] = object;
  changes_[path] = ++changeCount_;
}

class InMemoryTextFiles::GaveWay : public ReplacedFile {
 public:
  GaveWay(InMemoryTextFiles& files, Object object)
      : files_(files), object_(std::move(object)), contents_(object_.contents) {}
  const std::optional<std::string>& contents() const override { return contents_; }
  bool isOpenForWriting() const override { return files_.openForWriting_; }
  int keepAs(const std::string& path) override {
    if (files_.objects_.contains(path)) return EEXIST;
    if (!files_.hasFolderOf(path)) return ENOENT;
    files_.put(path, object_);
    return 0;
  }

 private:
  InMemoryTextFiles& files_;
  Object object_;
  std::optional<std::string> contents_;
};

bool InMemoryTextFiles::isInState(const std::string& path, const FileIdentity& expected) {
  FileIdentity present;
  const int error = identify(path, present);
  return error == (expected.isSameState({}) ? ENOENT : 0) && present.isSameState(expected);
}

int InMemoryTextFiles::leaveToOthers(const std::string& path, Replacement& replacement) {
  std::string resolved = path;
  if (!beforePuttingBack_ || resolve(resolved) != 0) return ESTALE;
  const Object gaveWay = objects_.at(resolved);
  std::exchange(beforePuttingBack_, nullptr)();
  if (!isInState(path, identityOf(resolved)) || objects_.at(resolved) == gaveWay) return ESTALE;
  replacement.gaveWay = std::make_unique<GaveWay>(*this, gaveWay);
  return ESTALE;
}

int InMemoryTextFiles::replaceKeeping(const std::string& path, const std::string& contents,
                                      const FileIdentity* expected, Replacement& replacement) {
  replacement = {};
  std::string resolved = path;
  if (expected != nullptr && !isInState(path, *expected)) return ESTALE;
  if (beforeReplacing_) std::exchange(beforeReplacing_, nullptr)();
  const bool isWritten = openForWriting_ && exists(path);
  if (expected != nullptr && (isWritten || !isInState(path, *expected)))
    return leaveToOthers(path, replacement);
  if (resolve(resolved) == 0 && objects_.at(resolved).kind == Kind::file) {
    replacement.gaveWay = std::make_unique<GaveWay>(*this, objects_.at(resolved));
  }
  const int error = replace(path, contents);
  if (error != 0) replacement = {};
  if (error == 0) replacement.written = identityOf(resolved);
  return error;
}

int InMemoryTextFiles::replace(const std::string& path, const std::string& contents) {
  std::string resolved = path;
  const int error = resolve(resolved);
  if (error != 0 && error != ENOENT) return error;
  if (!hasFolderOf(resolved)) return ENOENT;
  const auto object = objects_.find(resolved);
  if (object == objects_.end()) {
    put(resolved, {Kind::file, contents});
  } else if (object->second.kind == Kind::folder) {
    return EISDIR;
  } else if (object->second.kind != Kind::file) {
    return EINVAL;
  } else {
    object->second.contents = contents;
    changes_[resolved] = ++changeCount_;
  }
  ++replacements_;
  return 0;
}

int InMemoryTextFiles::copyOnce(const std::string& from, const std::string& to) {
  if (objects_.contains(to)) return EEXIST;
  std::string contents;
  if (const int error = read(from, contents); error != 0) return error;
  if (!hasFolderOf(to)) return ENOENT;
  std::string resolved = from;
  resolve(resolved);
  put(to, objects_.at(resolved));
  return 0;
}

int InMemoryTextFiles::removeFile(const std::string& folder, const std::string& name) {
  const bool isName = !name.empty() && name != "." && name != ".." &&
                      name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
  if (!isName || folder.find('\0') != std::string::npos) return EINVAL;
  if (folder.empty()) return ENOENT;
  const std::size_t end = folder.find_last_not_of('/');
  std::string resolved = end == std::string::npos ? "/" : folder.substr(0, end + 1);
  if (const int error = resolve(resolved); error != 0) return error;
  if (objects_.at(resolved).kind != Kind::folder) return ENOTDIR;
  const auto found = objects_.find((resolved == "/" ? "" : resolved) + "/" + name);
  if (found == objects_.end()) return ENOENT;
  if (found->second.kind == Kind::folder) return EISDIR;
  objects_.erase(found);
  return 0;
}

int InMemoryTextFiles::namesBeginningWith(const std::string& folder, const std::string& prefix,
                                          std::vector<std::string>& names) {
  names.clear();
  std::string resolved = folder;
  if (const int error = resolve(resolved); error != 0) return error;
  if (objects_.at(resolved).kind != Kind::folder) return ENOTDIR;
  const std::string beginning = (resolved == "/" ? "/" : resolved + "/");
  for (const auto& [path, object] : objects_) {
    if (!path.starts_with(beginning + prefix) || path == beginning) continue;
    const std::string name = path.substr(beginning.size());
    if (name.find('/') == std::string::npos) names.push_back(name);
  }
  return 0;
}

bool InMemoryTextFiles::exists(const std::string& path) {
  std::string resolved = path;
  return resolve(resolved) == 0;
}

void InMemoryTextFiles::set(const std::string& path, const Object& object) {
  for (std::string folder = folderOf(path); folder != "/"; folder = folderOf(folder)) {
    objects_.try_emplace(folder, Object{Kind::folder, "", 0755});
  }
  put(path, object);
}

void InMemoryTextFiles::setFile(const std::string& path, const std::string& contents) {
  set(path, {Kind::file, contents});
}

void InMemoryTextFiles::remove(const std::string& path) { objects_.erase(path); }

const InMemoryTextFiles::Object* InMemoryTextFiles::find(const std::string& path) const {
  const auto object = objects_.find(path);
  return object == objects_.end() ? nullptr : &object->second;
}

std::size_t InMemoryTextFiles::countBelow(const std::string& folder) const {
  std::size_t count = 0;
  for (const auto& [path, object] : objects_) {
    if (path.compare(0, folder.size() + 1, folder + "/") == 0) ++count;
  }
  return count;
}

std::string InMemoryTextFiles::contents(const std::string& path) const {
  std::string resolved = path;
  if (resolve(resolved) != 0) return {};
  return objects_.at(resolved).contents;
}

}  // namespace paddock
