#include "paddock_filebrowser/file_browser_handler.h"

#include <cerrno>
#include <stdexcept>
#include <string>

#include "base/status.h"
#include "paddock/host.h"
#include "paddock/sys_logger.h"
#include "paddock_filebrowser/mount_record.h"
#include "platform/linux/configured_options.h"
#include "platform/linux/directory/linux_directory.h"

namespace paddock {

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
  return {{"nfsWriteMountRec", true}};
}

Dictionary FileBrowserRequestHandler::performOperation(std::string_view name,
                                                       const Dictionary& request) {
  if (name == "nfsWriteMountRec") return nfsWriteMountRec(request);
  throw std::invalid_argument("no operation " + std::string(name));
}

Dictionary FileBrowserRequestHandler::nfsWriteMountRec(const Dictionary& request) {
  const NfsMount mount{textIn(request, "nfsServerHostName"), textIn(request, "nfsExportPath"),
                       textIn(request, "nfsResharePath")};
  if (const Status status = checkNfsMount(mount); status != kSuccess) return replyOf(status);
  const std::scoped_lock lock(changing_);
  try {
    writeMountRecord(*directory_->openLocal()->localNode(), mount);
    return replyOf(kSuccess);
  } catch (const DirectoryError& error) {
    return failed(error);
  }
}

}  // namespace paddock
