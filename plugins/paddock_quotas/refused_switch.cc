#include "paddock_quotas/refused_switch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "base/file_descriptor.h"
#include "base/system_call.h"
#include "paddock_quotas/quota_operations.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/files/path_walk.h"

namespace paddock {

namespace {

constexpr const char* kSharing = "paddock_sharing";
constexpr std::array<const char*, 2> kMadeFiles = {".quota.ops.user", ".quota.user"};

int statIn(int folder, const char* name, struct stat& status) {
  return errnoOf([&] { return ::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW); });
}

// The names of the files that nothing has in the folder.
std::vector<const char*> freeNames(int folder) {
  std::vector<const char*> names;
  for (const char* name : kMadeFiles) {
    struct stat status {};
    if (statIn(folder, name, status) == ENOENT) names.push_back(name);
  }
  return names;
}

// The folder may be one that others write to: what is not ours stays.
bool removeOwnFile(int folder, const char* name) {
  struct stat status {};
  return statIn(folder, name, status) == 0 && S_ISREG(status.st_mode) &&
         status.st_uid == ::geteuid() && errnoOf([&] { return ::unlinkat(folder, name, 0); }) == 0;
}

Dictionary askToSwitch(PluginCommands& commands, const std::string& path, bool on) {
  const Dictionary command{
      {"command", "writeSettings"},
      {"optionalArguments", Dictionary{{"path", path}}},
      {"configuration", Dictionary{{"volumeQuotas", Dictionary{{"isEnabled", on}}}}}};
  return commands.doCommand(kSharing, command, kSharing, std::nullopt);
}

Dictionary replyOf(const Dictionary& written) {
  const auto status = written.integer("writeStatus");
  const std::string* error = written.string(status ? "writeError" : "error");
  if (!status) {
    return quotaFailure(EIO, error != nullptr ? *error : "paddock_sharing does not answer");
  }
  Dictionary reply{{"status", *status}};
  if (error != nullptr) reply.set("error", *error);
  const Dictionary* configuration = written.dictionary("configuration");
  const Dictionary* quotas =
      configuration != nullptr ? configuration->dictionary("volumeQuotas") : nullptr;
  if (quotas != nullptr) reply.set("volumeQuotas", *quotas);
  return reply;
}

}  // namespace

Dictionary switchQuotas(PluginCommands& commands, const Dictionary& request) {
  const std::string* path = request.string("path");
  const auto on = request.boolean("isEnabled");
  if (path == nullptr || path->empty() || path->front() != '/' ||
      path->find('\0') != std::string::npos || !on) {
    return quotaFailure(EINVAL, "an absolute \"path\" and \"isEnabled\" are needed");
  }
  FileDescriptor folder;
  std::optional<RefusedLink> refused;
  const int error = holdObject(*path + "/", PathUse::changing, folder, &refused);
  if (refused) return quotaFailure(EACCES, *path + ": " + textWithOwner(*refused));
  if (error != 0) {
    return quotaFailure(error, *path + ": " + std::generic_category().message(error));
  }
  const std::vector<const char*> names = freeNames(folder.get());
  Dictionary reply = replyOf(askToSwitch(commands, *path, *on));
  Array removed;
  if (*on && reply.integer("status") != 0) {
    for (const char* name : names) {
      if (removeOwnFile(folder.get(), name)) removed.emplace_back(name);
    }
  }
  reply.set("removed", std::move(removed));
  return reply;
}

}  // namespace paddock
