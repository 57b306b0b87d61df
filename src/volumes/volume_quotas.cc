#include "volumes/volume_quotas.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/system_call.h"
#include "platform/file_attributes.h"
#include "platform/logger.h"
#include "platform/machine_information.h"
#include "platform/program_runner.h"
#include "platform/quota_control.h"
#include "platform/services.h"
#include "platform/volume_info.h"
#include "protocol/keys.h"
#include "volumes/quota_files.h"
#include "volumes/quota_listing.h"

namespace paddock {

namespace {

constexpr const char* kUsersKey = "usr";
constexpr const char* kGroupsKey = "grp";
constexpr std::uint32_t kStateOn = 1;
constexpr mode_t kMarkerMode = 0640;

// In the browser information, the flags word and the flag in it.
constexpr std::size_t kFlagsOffset = 8;
constexpr std::uint16_t kInvisibleFlag = 0x4000;

Status listInto(Dictionary& quotas, const char* key, const std::string& volumePath,
                QuotaType type) {
  std::optional<Array> entries;
  const Status status = read_quota_entries(volumePath, type, entries);
  if (entries) quotas.set(key, std::move(*entries));
  return status;
}

bool isListed(const std::string& volumePath, QuotaType type) {
  return isRegularFile(quota_file_path(volumePath, kQuotaOperationsName, type));
}

bool isVolumeRoot(const std::string& path) {
  MountedVolume volume;
  return services().volumeInfo->statfs(path, volume) == 0 && volume.f_mntonname == path;
}

// The kernel counts all the time, the files hold what it counted when they were last written. What
// cannot be brought up to date is listed as it is. In another folder than a volume's own, files of
// these names may belong to any user, and nothing is written there.
void refreshFiles(const std::string& volumePath) {
  const std::string& program = services().quotaRefresherPath;
  if (program.empty() || !services().programRunner->exists(program)) return;
  if (!isVolumeRoot(volumePath)) return;
  if (!isListed(volumePath, kUserQuota) && !isListed(volumePath, kGroupQuota)) return;
  const ProgramOutcome outcome =
      services().programRunner->run(program, {"--kernel", "-u", volumePath});
  if (outcome.status == 0 && outcome.exitStatus == 0) return;
  services().logger->log(kLogWarning, "The quotas of " + volumePath +
                                          " are listed as they were last counted: " +
                                          (outcome.status != 0 ? program : outcome.errorOutput));
}

// Any other path is of wherever the daemon happens to stand, and names no volume.
bool isAbsolute(const std::string& path) { return !path.empty() && path.front() == '/'; }

void makeFiles(const std::string& volumePath) {
  const std::string marker = quota_file_path(volumePath, kQuotaOperationsName, kUserQuota);
  FileDescriptor made;
  if (createFile(marker, kMarkerMode, made) == 0) set_file_invisible(marker);
  const std::string quotaFile = quota_file_path(volumePath, qfname, kUserQuota);
  if (!isTaken(quotaFile)) {
    (void)qfcreate(volumePath, kUserQuota);
    set_file_invisible(quotaFile);
  }
}

// What is no regular file was not made here and stays.
void removeMarker(const std::string& volumePath) {
  const std::string marker = quota_file_path(volumePath, kQuotaOperationsName, kUserQuota);
  if (isRegularFile(marker)) ::unlink(marker.c_str());
}

}  // namespace

Status get_volume_quota_info(const std::string& volumePath, Dictionary& quotas) {
  quotas = {};
  if (!services().fileAttributes->exists(volumePath)) {
    quotas.set(protocol::kQuotaError, "FILE_NOT_FOUND_ERR");
    return kSuccess;
  }
  std::uint32_t state = 0;
  const int unknown = services().quotaControl->quotactl(
      volumePath, quotaCommand(kQuotaStateCommand, kUserQuota), 0, &state);
  quotas.set(protocol::kIsEnabled, unknown == 0 && state == kStateOn);
  if (unknown == ENOTSUP) return kSuccess;
  if (unknown != 0) {
    services().logger->log(kLogError, "paddock_sharing: Whether the quotas of " + volumePath +
                                          " are on is not known: " + sharing_error_string(unknown));
    return unknown;
  }
  refreshFiles(volumePath);
  const Status status = listInto(quotas, kUsersKey, volumePath, kUserQuota);
  return status != kSuccess ? status : listInto(quotas, kGroupsKey, volumePath, kGroupQuota);
}

Status set_volume_quota_info(const std::string& volumePath, const Dictionary& quotas) {
  const auto enable = quotas.boolean(protocol::kIsEnabled);
  if (!enable) return kSuccess;
  const auto refusedLink = services().fileAttributes->refusedLink(volumePath);
  const bool hasFiles = isAbsolute(volumePath) && !refusedLink;
  if (*enable && hasFiles) makeFiles(volumePath);
  const std::uint32_t command = *enable ? kQuotaOnCommand : kQuotaOffCommand;
  const int refused = refusedLink ? EACCES
                                  : services().quotaControl->quotactl(
                                        volumePath, quotaCommand(command, kUserQuota), 0,
                                        quota_file_path(volumePath, qfname, kUserQuota));
  if (*enable) {
    // Deliberate: "-u" stands in the place of the program's name.
    (void)services().programRunner->start(services().quotaCheckerPath, {"-u", volumePath});
  } else if (hasFiles) {
    removeMarker(volumePath);
  }
  if (refused == 0) return kSuccess;
  services().logger->log(kLogError,
                         "paddock_sharing: The quotas of " + volumePath + " were not switched " +
                             (*enable ? "on" : "off") + ": " +
                             (refusedLink ? textOf(*refusedLink) : sharing_error_string(refused)));
  return CANNOT_SET_QUOTA_STATE_ERR;
}

void set_file_invisible(const std::string& path) {
  BrowserInformation information{};
  if (services().browserInformation->read(path, information) != 0) return;
  std::uint16_t flags = 0;
  // Deliberate: the word is in this host's order.
  std::memcpy(&flags, information.data() + kFlagsOffset, sizeof flags);
  flags = static_cast<std::uint16_t>(flags | kInvisibleFlag);
  std::memcpy(information.data() + kFlagsOffset, &flags, sizeof flags);
  (void)services().browserInformation->write(path, information);
}

}  // namespace paddock
