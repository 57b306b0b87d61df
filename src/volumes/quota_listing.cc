#include "volumes/quota_listing.h"

#include <unistd.h>

#include "base/system_call.h"
#include "platform/accounts.h"
#include "platform/services.h"
#include "platform/volume_info.h"
#include "volumes/quota_entries.h"
#include "volumes/volume_files.h"

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

// A file that another user has put there could say anything, and would cost a descriptor each
// time that its header is refused.
int openQuotaFile(const std::string& path, FileDescriptor& file) {
  uid_t owner = 0;
  if (const int error = openRegularFile(path, file, owner); error != 0) return error;
  if (owner == 0 || owner == ::geteuid()) return 0;
  file.reset();
  return EPERM;
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
  const int closed = openQuotaFile(quota_file_path(volumePath, qfname, type), file);
  if (closed != 0) return closed;
  VolumeStatistics volume;
  const int unknown = services().volumeInfo->statistics(volumePath, volume);
  if (unknown != 0) {
    (void)file.release();  // deliberate: it is left open
    return unknown;
  }
  if (volume.family != "hfs" && volume.family != "ufs") {
    entries.emplace();
    return kSuccess;
  }
  QuotaFileHeader header;
  if (!readHeader(file.get(), header) ||
      !isQuotaHeaderOf(type, header.magic, header.version, header.maxentries)) {
    (void)file.release();  // deliberate: it is left open
    return kBadHeader;
  }
  return listEntries(file.get(), header.maxentries, type, volume.f_bsize * volume.f_bavail,
                     entries);
}

}  // namespace paddock
