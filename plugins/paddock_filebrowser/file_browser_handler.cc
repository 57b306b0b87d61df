#include "paddock_filebrowser/file_browser_handler.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>

#include "base/status.h"
#include "base/text.h"
#include "paddock/host.h"
#include "paddock/sys_logger.h"
#include "platform/directory.h"
#include "platform/linux/configured_options.h"
#include "platform/linux/directory/linux_directory.h"
#include "protocol/keys.h"

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

namespace {

std::string textIn(const Dictionary& request, const char* key) {
  const std::string* text = request.string(key);
  return text != nullptr ? *text : std::string();
}

Dictionary replyOf(Status status) {
  if (status == kSuccess) return {{"status", status}};
  return {{"status", status}, {"error", sharing_error_string(status)}};
}

Dictionary failed(const DirectoryError& error) {
  logMessage(3, std::string("paddock_filebrowser: ") + error.what());
  const Status status = error.status().value_or(EIO);
  return replyOf(status != kSuccess ? status : EIO);
}

}  // namespace

FileBrowserRequestHandler::FileBrowserRequestHandler()
    : FileBrowserRequestHandler(std::make_unique<LinuxDirectoryService>(
          configuredDirectory(host().configuration(), host().root()))) {}

FileBrowserRequestHandler::FileBrowserRequestHandler(std::unique_ptr<DirectoryService> directory)
    : directory_(std::move(directory)) {}

std::vector<PluginRequestHandler::Operation> FileBrowserRequestHandler::operations() const {
  return {{protocol::kNfsWriteMountRec, true}};
}

Dictionary FileBrowserRequestHandler::performOperation(std::string_view name,
                                                       const Dictionary& request) {
  if (name == protocol::kNfsWriteMountRec) return nfsWriteMountRec(request);
  throw std::invalid_argument("no operation " + std::string(name));
}

Dictionary FileBrowserRequestHandler::nfsWriteMountRec(const Dictionary& request) {
  const NfsMount mount{textIn(request, protocol::kNfsServerHostName),
                       textIn(request, protocol::kNfsExportPath),
                       textIn(request, protocol::kNfsResharePath)};
  if (const Status status = checkNfsMount(mount); status != kSuccess) return replyOf(status);
  const MutexLock lock(changing_);
  try {
    writeMountRecord(*directory_->openLocal()->localNode(), mount);
    return replyOf(kSuccess);
  } catch (const DirectoryError& error) {
    return failed(error);
  }
}

}  // namespace paddock
