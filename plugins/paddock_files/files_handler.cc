#include "paddock_files/files_handler.h"

#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "base/status.h"
#include "base/system_call.h"
#include "paddock/host.h"
#include "paddock/sys_logger.h"
#include "platform/host/host_services.h"
#include "platform/linux/accounts/linux_membership.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/configured_options.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/linux/files/file_object.h"
#include "platform/linux/privileges/file_mode.h"
#include "platform/linux/privileges/file_privileges.h"
#include "platform/linux/privileges/stored_acl.h"
#include "platform/services.h"

namespace paddock {

namespace {

constexpr mode_t kPermissionBits = 0777;
constexpr unsigned kSpecialBitsShift = 9;
constexpr int kOctal = 8;
constexpr std::size_t kDigits = 4;
constexpr int kAttempts = 5;

Dictionary replyOf(int error, Dictionary reply = {}) {
  reply.set("status", error);
  if (error != 0) reply.set("error", sharing_error_string(error));
  return reply;
}

std::string octalDigits(mode_t mode) {
  std::string digits(kDigits, '0');
  for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
    *digit = static_cast<char>('0' + mode % kOctal);
    mode /= kOctal;
  }
  return digits;
}

int openNamed(const Dictionary& request, PathUse use, FileDescriptor& object, struct stat& status) {
  const std::string* path = request.string("path");
  if (path == nullptr || !path->starts_with('/')) return EINVAL;
  std::optional<RefusedLink> refused;
  const int error = openObject(*path, object, use, &refused);
  if (refused) {
    logMessage(kLogError, "paddock_files: " + *path + " is left alone: " + textWithOwner(*refused));
  }
  return error != 0 ? error : errnoOf([&] { return ::fstat(object.get(), &status); });
}

Dictionary describe(const FileDescriptor& object) {
  struct stat status {};
  int error = errnoOf([&] { return ::fstat(object.get(), &status); });
  mode_t mode = 0;
  if (error == 0) error = readMode(linuxExtendedAttributes(), object.get(), status.st_mode, mode);
  if (error != 0) return replyOf(error);
  return replyOf(0, {{"mode", octalDigits(mode)}, {"uid", status.st_uid}, {"gid", status.st_gid}});
}

Dictionary getMode(const Dictionary& request) {
  FileDescriptor object;
  struct stat status {};
  const int error = openNamed(request, PathUse::reading, object, status);
  return error != 0 ? replyOf(error) : describe(object);
}

std::optional<mode_t> bitsIn(const Dictionary& request) {
  const std::string* digit = request.string("bits");
  if (digit == nullptr || digit->size() != 1 || digit->front() < '0' || digit->front() > '7') {
    return std::nullopt;
  }
  return static_cast<mode_t>(digit->front() - '0') << kSpecialBitsShift;
}

Dictionary setModeBits(const Dictionary& request, const FileAcls& acls) {
  const std::optional<mode_t> bits = bitsIn(request);
  if (!bits) return replyOf(EINVAL);
  FileDescriptor object;
  struct stat status {};
  int error = openNamed(request, PathUse::changing, object, status);
  if (error == 0 && !S_ISDIR(status.st_mode)) error = ENOTDIR;
  // With a POSIX ACL the group's part is its mask, which so stays as it is.
  if (error == 0) {
    error = changeObjectMode(object.get(), (status.st_mode & kPermissionBits) | *bits);
  }
  // smbd drops a list of its own whose hash is that of another mode.
  if (error == 0) error = acls.refresh(object.get());
  return error != 0 ? replyOf(error) : describe(object);
}

// The list that the object has; absent when it has none.
int readList(const FileDescriptor& object, std::optional<nt_acl::SplitList>& list) {
  const std::string attribute =
      configuredPrivileges(host().configuration(), host().root()).attribute;
  nt_acl::OpenObject open;
  nt_acl::StoredAcl stored;
  int error = nt_acl::lookAt(object.get(), open);
  if (error == 0) error = readStoredAcl(linuxExtendedAttributes(), attribute, open, stored);
  if (error == EOPNOTSUPP) return 0;  // it can have none
  if (error == 0 && stored.isUndecodable()) return EINVAL;
  list = std::move(stored.list);
  return error;
}

Dictionary describeList(const FileDescriptor& object) {
  std::optional<nt_acl::SplitList> list;
  const int error = readList(object, list);
  if (error != 0) return replyOf(error);
  return replyOf(0, {{"present", list.has_value()}, {"complete", list && list->complete}});
}

Dictionary getList(const Dictionary& request) {
  FileDescriptor object;
  struct stat status {};
  const int error = openNamed(request, PathUse::reading, object, status);
  return error != 0 ? replyOf(error) : describeList(object);
}

Dictionary makeComplete(const Dictionary& request, const FileAcls& acls) {
  if (request.contains("empty") && !request.boolean("empty")) return replyOf(EINVAL);
  const bool emptied = request.boolean("empty").value_or(false);
  FileDescriptor object;
  struct stat status {};
  const int unopened = openNamed(request, PathUse::changing, object, status);
  if (unopened != 0) return replyOf(unopened);
  // smbd and others change lists without the lock held here. Concurrently added entries are
  // preserved by starting over; whether they are to be removed, too, is up to the caller.
  int error = EAGAIN;
  for (int left = emptied ? 1 : kAttempts; error == EAGAIN && left > 0; --left) {
    error = acls.makeComplete(object.get(), emptied);
  }
  return error != 0 ? replyOf(error) : describeList(object);
}

}  // namespace

// What a list is kept with.
struct FilesRequestHandler::Lists {
  explicit Lists(const ExtendedAttributes& attributes)
      : acls(privileges.fileAclsOver(attributes)) {}

  LinuxDirectoryService directory{configuredDirectory(host().configuration(), host().root())};
  LinuxMembership membership{directory};
  FilePrivileges privileges{configuredPrivileges(host().configuration(), host().root()), directory,
                            membership,
                            configuredSidResolver(host().configuration(), host().root())};
  FileAcls acls;
  HostLogger logger;
  ServicesGuard guard{services()};

  Services services() {
    Services all;
    all.acl = &privileges.acl();
    all.logger = &logger;
    return all;
  }
};

FilesRequestHandler::FilesRequestHandler(const ExtendedAttributes& attributes)
    : lists_(std::make_unique<Lists>(attributes)) {}
FilesRequestHandler::~FilesRequestHandler() = default;

std::vector<PluginRequestHandler::Operation> FilesRequestHandler::operations() const {
  return {{"getMode", false}, {"setModeBits", true}, {"getList", false}, {"makeComplete", true}};
}

Dictionary FilesRequestHandler::performOperation(std::string_view name, const Dictionary& request) {
  if (name == "getMode") return getMode(request);
  if (name == "getList") return getList(request);
  const MutexLock lock(changing_);
  if (name == "setModeBits") return setModeBits(request, lists_->acls);
  if (name == "makeComplete") return makeComplete(request, lists_->acls);
  throw std::invalid_argument("no operation " + std::string(name));
}

}  // namespace paddock
