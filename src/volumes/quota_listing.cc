#include "volumes/quota_listing.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/system_call.h"
#include "platform/accounts.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "platform/volume_info.h"
#include "volumes/quota_entries.h"
#include "volumes/quota_files.h"

namespace paddock {

namespace {

constexpr Status kBadHeader = -1;

std::string nameOf(QuotaType type, std::uint32_t id) {
  std::string name;
  if (type == kUserQuota && services().accounts->getpwuid(id, name) == 0) return name;
  if (type == kGroupQuota && services().accounts->getgrgid(id, name) == 0) return name;
  return std::to_string(id);
}

bool isUsed(const QuotaEntry& entry) { return entry.usedBytes != 0 || entry.usedFiles != 0; }

std::uint64_t freeBytes(const QuotaEntry& entry, std::uint64_t available) {
  if (entry.hardBytes == 0) return available;
  return entry.hardBytes > entry.usedBytes ? entry.hardBytes - entry.usedBytes : 0;
}

Dictionary entryForm(const QuotaEntry& entry, QuotaType type, std::uint64_t available) {
  return {{"name", nameOf(type, entry.id)},
          {"used", entry.usedBytes},
          {"free", freeBytes(entry, available)},
          {"limit", entry.hardBytes},
          {"type", type}};
}

Status notListed(const std::string& path, Status status, const std::string& why) {
  services().logger->log(kLogError,
                         "paddock_sharing: The quotas in " + path + " are not listed: " + why);
  return status;
}

std::string whyNotOpened(int error) {
  switch (error) {
    case ENOENT:
      return "there is no such file, although quotas were switched on here";
    case ELOOP:
      return "it is a symbolic link";
    case EISDIR:
      return "it is a folder";
    case EINVAL:
      return "it is no regular file";
    default:
      return sharing_error_string(error);
  }
}

// A file that another user has put there could say anything, and would cost a descriptor each
// time that its header is refused.
Status openQuotaFile(const std::string& path, FileDescriptor& file) {
  uid_t owner = 0;
  if (const int error = openRegularFile(path, file, owner); error != 0)
    return notListed(path, error, whyNotOpened(error));
  if (owner == 0 || owner == ::geteuid()) return kSuccess;
  file.reset();
  return notListed(path, EPERM, "it is of the user " + std::to_string(owner) + " and not of root");
}

bool readHeader(int file, QuotaFileHeader& header) {
  QuotaSlot slot{};
  const auto count = retryOnInterrupt([&] { return ::pread(file, slot.data(), slot.size(), 0); });
  header = decodeQuotaHeader(slot);
  return count == static_cast<ssize_t>(slot.size());
}

Status listEntries(int file, std::uint32_t maxentries, QuotaType type, std::uint64_t available,
                   std::optional<Array>& entries) {
  Array listed;
  QuotaEntries all(file, maxentries);
  while (const auto entry = all.next()) {
    if (isUsed(*entry)) listed.emplace_back(entryForm(*entry, type, available));
  }
  if (all.error() == 0) entries = std::move(listed);
  return all.error();
}

}  // namespace

std::string quota_file_path(const std::string& folder, const std::string& baseName,
                            QuotaType type) {
  const bool known = type == kUserQuota || type == kGroupQuota;
  const char* extension = gQuotaFileExtension[known ? static_cast<std::size_t>(type) : kQuotaTypes];
  const char* slash = folder.empty() || folder.back() == '/' ? "" : "/";
  return folder + slash + baseName + "." + extension;
}

Status read_quota_entries(const std::string& volumePath, QuotaType type,
                          std::optional<Array>& entries) {
  entries.reset();
  if (!isRegularFile(quota_file_path(volumePath, kQuotaOperationsName, type))) return kSuccess;
  FileDescriptor file;
  const std::string path = quota_file_path(volumePath, qfname, type);
  const Status closed = openQuotaFile(path, file);
  if (closed != kSuccess) return closed;
  VolumeStatistics volume;
  const int unknown = services().volumeInfo->statistics(volumePath, volume);
  if (unknown != 0) {
    keepOpen(std::move(file));  // deliberate: it is left open
    return notListed(path, unknown, "the volume: " + sharing_error_string(unknown));
  }
  if (volume.family != "hfs" && volume.family != "ufs") {
    entries.emplace();
    return kSuccess;
  }
  QuotaFileHeader header;
  if (!readHeader(file.get(), header) ||
      !isQuotaHeaderOf(type, header.magic, header.version, header.maxentries)) {
    keepOpen(std::move(file));  // deliberate: it is left open
    return notListed(path, kBadHeader, "it does not begin with the header of such a file");
  }
  const Status unread =
      listEntries(file.get(), header.maxentries, type, volume.f_bsize * volume.f_bavail, entries);
  return unread == kSuccess ? kSuccess : notListed(path, unread, sharing_error_string(unread));
}

}  // namespace paddock
