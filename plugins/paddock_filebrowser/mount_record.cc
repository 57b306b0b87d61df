#include "paddock_filebrowser/mount_record.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "base/text.h"
#include "platform/directory_schema.h"

namespace paddock {

namespace {

constexpr std::size_t kLongestHost = 255;
constexpr std::size_t kLongestPath = 4095;

bool hasControlCharacter(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7f;
  });
}

bool isText(std::string_view text) { return isValidUtf8(text) && !hasControlCharacter(text); }

bool isHost(std::string_view host) {
  return !host.empty() && host.size() <= kLongestHost && !host.starts_with('-') &&
         host.find_first_of(" :/") == std::string_view::npos && isText(host);
}

bool hasDotComponent(std::string_view path) {
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view component = path.substr(0, end);
    if (component == "." || component == "..") return true;
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return false;
}

bool isPath(std::string_view path) {
  return path.starts_with('/') && path.size() <= kLongestPath && isText(path) &&
         !hasDotComponent(path);
}

// A record without its attributes would be taken for a complete one the next time.
void removeQuietly(DirectoryRecord& record) noexcept {
  try {
    record.removeRecord();
  } catch (...) {
    // The directory that refused the attributes may refuse the removal too; the first error counts.
  }
}

}  // namespace

Status checkNfsMount(const NfsMount& mount) {
  return isHost(mount.host) && isPath(mount.exportPath) && isPath(mount.mountPoint) ? kSuccess
                                                                                    : EINVAL;
}

void writeMountRecord(DirectoryNode& node, const NfsMount& mount) {
  const std::string name = mount.host + ":" + mount.exportPath;
  if (node.findRecord(name, schema::kMounts) != nullptr) return;
  const auto record = node.newRecord(name, schema::kMounts);
  try {
    record->setAttributesAndValues(
        {{schema::kVfsLinkDir, mount.mountPoint}, {schema::kVfsType, "nfs"}});
  } catch (...) {
    removeQuietly(*record);
    throw;
  }
}

}  // namespace paddock
