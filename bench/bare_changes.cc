// Changes what copyprivs changes, object by object in one thread, with no more calls than it takes:
// open, fstat, fchown, and reading and writing the extended ACL and the kernel's.
//
//   bench_bare_changes MODEL TREE      gives every file in TREE what the file MODEL has, and every
//                                      folder what the folder has that MODEL is in
//   bench_bare_changes --undo TREE     takes it all away again: root's, 0644 and 0755, no ACLs
//   bench_bare_changes --make TREE FOLDERS FILES   makes TREE: FOLDERS folders of FILES files each
//
// Standard output is one line: how many objects those were.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

constexpr std::array<const char*, 2> kOfFiles = {"security.NTACL", "system.posix_acl_access"};
constexpr const char* kOfFolders = "system.posix_acl_default";
constexpr std::size_t kRoom = 4096;

[[noreturn]] void fail(const char* what) {
  throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

void check(bool worked, const char* what) {
  if (!worked) fail(what);
}

struct Model {
  uid_t uid = 0;
  gid_t gid = 0;
  std::array<std::string, 2> values;
  std::string inherited;
};

std::string valueOf(const std::string& path, const char* name) {
  std::array<char, kRoom> buffer;
  const ssize_t size = ::getxattr(path.c_str(), name, buffer.data(), buffer.size());
  return size < 0 ? std::string() : std::string(buffer.data(), static_cast<std::size_t>(size));
}

Model modelAt(const std::string& path) {
  struct stat status {};
  check(::stat(path.c_str(), &status) == 0, "stat");
  return {status.st_uid,
          status.st_gid,
          {valueOf(path, kOfFiles[0]), valueOf(path, kOfFiles[1])},
          valueOf(path, kOfFolders)};
}

void change(int object, const Model& model) {
  struct stat status {};
  check(::fstat(object, &status) == 0, "fstat");
  check(::fchown(object, model.uid, model.gid) == 0, "fchown");
  std::array<char, kRoom> buffer;
  for (std::size_t i = 0; i < kOfFiles.size(); ++i) {
    const std::string& value = model.values[i];
    (void)::fgetxattr(object, kOfFiles[i], buffer.data(), buffer.size());
    if (value.empty()) continue;
    check(::fsetxattr(object, kOfFiles[i], value.data(), value.size(), 0) == 0, "fsetxattr");
  }
  if (model.inherited.empty()) return;
  check(::fsetxattr(object, kOfFolders, model.inherited.data(), model.inherited.size(), 0) == 0,
        "fsetxattr");
}

void undo(int object, bool isFolder) {
  check(::fchown(object, 0, 0) == 0, "fchown");
  (void)::fremovexattr(object, kOfFiles[1]);
  (void)::fremovexattr(object, kOfFiles[0]);
  if (isFolder) (void)::fremovexattr(object, kOfFolders);
  check(::fchmod(object, isFolder ? 0755 : 0644) == 0, "fchmod");
}

// Calls `each` for everything in the folder, which it takes.
template <typename Each>
long walk(int folder, const Each& each) {
  DIR* stream = ::fdopendir(folder);
  if (stream == nullptr) fail("fdopendir");
  long count = 0;
  while (const dirent* entry = ::readdir(stream)) {
    const std::string_view name(entry->d_name);
    if (name == "." || name == "..") continue;
    const bool isFolder = entry->d_type == DT_DIR;
    const int object = ::openat(folder, entry->d_name,
                                O_RDONLY | O_NOFOLLOW | O_NONBLOCK | (isFolder ? O_DIRECTORY : 0));
    check(object >= 0, "openat");
    each(object, isFolder);
    ++count;
    if (isFolder) {
      count += walk(object, each);
    } else {
      ::close(object);
    }
  }
  ::closedir(stream);
  return count;
}

int opened(const std::string& path) {
  const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY);
  check(folder >= 0, "open");
  return folder;
}

void makeFolder(const std::string& path) { check(::mkdir(path.c_str(), 0755) == 0, "mkdir"); }

long make(const std::string& tree, int folders, int files) {
  constexpr int kTogether = 100;
  long made = 0;
  makeFolder(tree);
  std::string above;
  for (int number = 0; number < folders; ++number) {
    if (number % kTogether == 0) {
      above = tree + "/folders" + std::to_string(number / kTogether);
      makeFolder(above);
      ++made;
    }
    const std::string folder = above + "/folder" + std::to_string(number % kTogether);
    makeFolder(folder);
    for (int file = 0; file < files; ++file) {
      const std::string path = folder + "/file" + std::to_string(file);
      const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
      check(descriptor >= 0, "open");
      ::close(descriptor);
    }
    made += files + 1;
  }
  return made;
}

long run(int count, char** arguments) {
  const std::string first = count > 2 ? arguments[1] : "";
  if (count == 5 && first == "--make") {
    return make(arguments[2], std::stoi(arguments[3]), std::stoi(arguments[4]));
  }
  if (count != 3) throw std::runtime_error("see the head of bare_changes.cc for what to say");
  if (first == "--undo") return walk(opened(arguments[2]), undo);
  const Model file = modelAt(first);
  const Model folder = modelAt(first.substr(0, first.rfind('/')));
  return walk(opened(arguments[2]),
              [&](int object, bool isFolder) { change(object, isFolder ? folder : file); });
}

}  // namespace

int main(int count, char** arguments) {
  ::umask(022);
  try {
    std::cout << run(count, arguments) << '\n';
  } catch (const std::exception& error) {
    std::cerr << "bench_bare_changes: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
