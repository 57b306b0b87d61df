#include "daemon/audit/begun_changes.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "base/file_access.h"
#include "base/system_call.h"
#include "paddock/sys_logger.h"

namespace paddock {
namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kMode = 0600;
// A line names up to a thousand paths.
constexpr std::size_t kLongestLine = 64U << 20U;

struct FolderCloser {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

}  // namespace

BegunChanges::BegunChanges(std::string folder)
    : path_(std::move(folder)), folder_(openOwnFolder(path_, kFolderMode)) {}

void BegunChanges::keep(const std::string& request, std::string_view line, bool durable) {
  const FileDescriptor file(::openat(folder_.get(), request.c_str(),
                                     O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kMode));
  if (!file) throw systemError(errno, "create", path_ + "/" + request);
  const bool kept = writeAll(file.get(), line) &&
                    (!durable || (::fdatasync(file.get()) == 0 && ::fsync(folder_.get()) == 0));
  if (kept) return;
  const int error = errno;
  forget(request);
  throw systemError(error, "write", path_ + "/" + request);
}

void BegunChanges::forget(const std::string& request) {
  (void)::unlinkat(folder_.get(), request.c_str(), 0);
}

std::vector<BegunChanges::Kept> BegunChanges::kept() const {
  std::vector<Kept> all;
  const std::unique_ptr<DIR, FolderCloser> entries(::opendir(path_.c_str()));
  if (!entries) throw systemError(errno, "open", path_);
  while (const dirent* entry = ::readdir(entries.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    try {
      if (auto line = readSmallFile(path_ + "/" + name, kLongestLine))
        all.push_back({name, std::move(*line)});
    } catch (const std::exception& error) {
      logMessage(3, std::string("what a request had begun cannot be read: ") + error.what());
    }
  }
  std::sort(all.begin(), all.end(),
            [](const Kept& left, const Kept& right) { return left.request < right.request; });
  return all;
}

}  // namespace paddock
