#include "paddock_quotas/quotas_handler.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "base/file_access.h"
#include "base/system_call.h"
#include "paddock/host.h"
#include "paddock_quotas/quota_operations.h"
#include "platform/host/host_services.h"
#include "platform/linux/accounts/linux_accounts.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/configured_options.h"
#include "platform/linux/files/linux_volume_info.h"
#include "platform/linux/files/path_walk.h"
#include "platform/linux/process/linux_machine_information.h"
#include "platform/linux/quotas/kernel_quota_control.h"
#include "protocol/keys.h"

namespace paddock {

namespace {

constexpr const char* kSharing = "paddock_sharing";
constexpr std::array<const char*, 2> kMadeFiles = {".quota.ops.user", ".quota.user"};

int statIn(int folder, const char* name, struct stat& status) {
  return errnoOf([&] { return ::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW); });
}

// The names of the files that do not exist in the folder.
std::vector<const char*> freeNames(int folder) {
  std::vector<const char*> names;
  for (const char* name : kMadeFiles) {
    struct stat status {};
    if (statIn(folder, name, status) == ENOENT) names.push_back(name);
  }
  return names;
}

// The folder may be writable by others: files not owned by this process are left alone.
bool removeOwnFile(int folder, const char* name) {
  struct stat status {};
  return statIn(folder, name, status) == 0 && S_ISREG(status.st_mode) &&
         status.st_uid == ::geteuid() && errnoOf([&] { return ::unlinkat(folder, name, 0); }) == 0;
}

Dictionary askToSwitch(PluginCommands& commands, const std::string& path, bool on) {
  const Dictionary command{{"command", "writeSettings"},
                           {protocol::kOptionalArguments, Dictionary{{"path", path}}},
                           {"configuration", Dictionary{{protocol::kVolumeQuotas,
                                                         Dictionary{{protocol::kIsEnabled, on}}}}}};
  return commands.doCommand(kSharing, command, kSharing, std::nullopt);
}

Dictionary replyOf(const Dictionary& written) {
  const auto status = written.integer(protocol::kWriteStatus);
  const std::string* error = written.string(status ? protocol::kWriteError : "error");
  if (!status) {
    return quotaFailure(EIO, error != nullptr ? *error : "paddock_sharing does not answer");
  }
  Dictionary reply{{"status", *status}};
  if (error != nullptr) reply.set("error", *error);
  const Dictionary* configuration = written.dictionary("configuration");
  const Dictionary* quotas =
      configuration != nullptr ? configuration->dictionary(protocol::kVolumeQuotas) : nullptr;
  if (quotas != nullptr) reply.set(protocol::kVolumeQuotas, *quotas);
  return reply;
}

}  // namespace

Dictionary switchQuotas(PluginCommands& commands, const Dictionary& request) {
  const std::string* path = request.string("path");
  const auto on = request.boolean(protocol::kIsEnabled);
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

namespace {

bool kernelKeepsQuotas() {
  const Dictionary* volumes = host().configuration().dictionary("volumes");
  const Value* backend = volumes != nullptr ? volumes->find("quota_backend") : nullptr;
  return backend == nullptr || *backend != Value("accounting");
}

}  // namespace

struct QuotasRequestHandler::OwnServices {
  LinuxClock clock;
  LinuxDirectoryService directory{configuredDirectory(host().configuration(), host().root())};
  LinuxAccounts accounts{directory};
  LinuxVolumeInfo volumes;
  KernelQuotaControl control{volumes};
  KernelQuotaRecords records{volumes};
  HostPluginCommands commands;
};

QuotasRequestHandler::QuotasRequestHandler() : own_(std::make_unique<OwnServices>()) {
  services_ = {&own_->accounts, &own_->clock, &own_->control,
               kernelKeepsQuotas() ? &own_->records : nullptr};
  commands_ = &own_->commands;
}

QuotasRequestHandler::QuotasRequestHandler(const QuotaServices& services, PluginCommands& commands)
    : services_(services), commands_(&commands) {}

QuotasRequestHandler::~QuotasRequestHandler() = default;

std::vector<PluginRequestHandler::Operation> QuotasRequestHandler::operations() const {
  return {{"getUsage", false}, {"setLimits", true}, {"setEnabled", true}};
}

Dictionary QuotasRequestHandler::performOperation(std::string_view name,
                                                  const Dictionary& request) {
  if (name == "getUsage") return getQuotaUsage(services_, request);
  const MutexLock lock(changing_);
  if (name == "setLimits") return setQuotaLimits(services_, request);
  if (name == "setEnabled") return switchQuotas(*commands_, request);
  throw std::invalid_argument("no operation " + std::string(name));
}

}  // namespace paddock
