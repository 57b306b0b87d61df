#include "volumes/quota_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "base/system_call.h"
#include "platform/services.h"

namespace paddock {

namespace {

constexpr int kSafely = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

int look(const std::string& path, struct stat& status) {
  if (path.find('\0') != std::string::npos) return EINVAL;
  return errnoOf([&] { return ::lstat(path.c_str(), &status); });
}

int kindError(mode_t mode) {
  if (S_ISREG(mode)) return 0;
  if (S_ISLNK(mode)) return ELOOP;
  return S_ISDIR(mode) ? EISDIR : EINVAL;
}

struct KeptFile {
  FileDescriptor descriptor;
  dev_t device = 0;
  ino_t inode = 0;
};

enum class KeptState : std::uint8_t { present, removed, foreign };

// Who closed the descriptor may have opened another file by its number, which is not ours to close.
KeptState stateOf(const KeptFile& kept) {
  struct stat status {};
  if (::fstat(kept.descriptor.get(), &status) != 0) return KeptState::foreign;
  if (status.st_dev != kept.device || status.st_ino != kept.inode) return KeptState::foreign;
  return status.st_nlink == 0 ? KeptState::removed : KeptState::present;
}

void forgetOthers(std::vector<KeptFile>& files, int newNumber) {
  std::erase_if(files, [newNumber](KeptFile& kept) {
    const bool reopened = kept.descriptor.get() == newNumber;
    const KeptState state = reopened ? KeptState::foreign : stateOf(kept);
    if (state == KeptState::foreign) (void)kept.descriptor.release();
    return state != KeptState::present;
  });
}

}  // namespace

int openRegularFile(const std::string& path, FileDescriptor& file, uid_t& owner) {
  struct stat status {};
  if (const int error = look(path, status); error != 0) return error;
  if (const int error = kindError(status.st_mode); error != 0) return error;
  int descriptor = -1;
  const int failed = errnoOf([&] { return ::open(path.c_str(), O_RDONLY | kSafely); }, &descriptor);
  if (failed != 0) return failed;
  FileDescriptor opened(descriptor);
  // The path may have been replaced concurrently.
  const int unknown = errnoOf([&] { return ::fstat(opened.get(), &status); });
  if (unknown != 0) return unknown;
  if (const int error = kindError(status.st_mode); error != 0) return error;
  owner = status.st_uid;
  file = std::move(opened);
  return 0;
}

int createFile(const std::string& path, mode_t mode, FileDescriptor& file) {
  if (path.find('\0') != std::string::npos) return EINVAL;
  int descriptor = -1;
  const int error = errnoOf(
      [&] { return ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | kSafely, mode); }, &descriptor);
  if (error == 0) file = FileDescriptor(descriptor);
  return error;
}

void keepOpen(FileDescriptor file) {
  static Mutex mutex;
  // Never destroyed: at the process's end the files are closed anyway.
  static auto& files = *new std::vector<KeptFile>;
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return;
  const MutexLock lock(mutex);
  forgetOthers(files, file.get());
  for (const KeptFile& kept : files)
    if (kept.device == status.st_dev && kept.inode == status.st_ino) return;
  files.push_back({std::move(file), status.st_dev, status.st_ino});
}

bool isTaken(const std::string& path) {
  struct stat status {};
  return look(path, status) == 0;
}

bool isRegularFile(const std::string& path) {
  struct stat status {};
  return look(path, status) == 0 && S_ISREG(status.st_mode);
}

namespace {

constexpr std::size_t kPathBuffer = 512;
constexpr mode_t kQuotaFileMode = 0640;
constexpr gid_t kQuotaFileGroup = 80;
constexpr int kInvalidHeader = 22;

bool isKnownType(QuotaType type) { return type == kUserQuota || type == kGroupQuota; }

std::size_t extensionIndex(QuotaType type) {
  return isKnownType(type) ? static_cast<std::size_t>(type) : kQuotaTypes;
}

void sayWhy(const std::string& path, int error) {
  errno = error;
  std::perror(path.c_str());
}

// Empty for a path that is longer than the buffer.
std::string quotaFileOf(const std::string& mountPoint, QuotaType type) {
  std::array<char, kPathBuffer> path{};
  const int length = std::snprintf(path.data(), path.size(), "%s/%s.%s", mountPoint.c_str(), qfname,
                                   qfextension[extensionIndex(type)]);
  return length > 0 && static_cast<std::size_t>(length) < path.size() ? path.data() : "";
}

enum class Creation : std::uint8_t { done, failed };

// Owner, mode and contents of the file. Without one, deliberately, this goes on and has no effect.
Creation fillFile(FileDescriptor file, const std::string& path, const VolumeStatistics& volume,
                  QuotaType type) {
  (void)errnoOf([&] { return ::fchown(file.get(), ::getuid(), kQuotaFileGroup); });
  (void)errnoOf([&] { return ::fchmod(file.get(), kQuotaFileMode); });
  if (qfinit(file.get(), volume, type) != 0) {
    std::perror(path.c_str());
    return Creation::failed;
  }
  (void)file.release();  // deliberate: it is left open
  return Creation::done;
}

Creation createOn(const std::string& mountPoint, QuotaType type) {
  const std::string path = quotaFileOf(mountPoint, type);
  if (path.empty()) {
    sayWhy(mountPoint, ENAMETOOLONG);
    return Creation::failed;
  }
  FileDescriptor file;
  uid_t owner = 0;
  if (openRegularFile(path, file, owner) == 0) {
    (void)file.release();  // deliberate: it is left open
    return Creation::done;
  }
  VolumeStatistics volume;
  int error = services().volumeInfo->statistics(mountPoint, volume);
  if (error == 0) error = createFile(path, kQuotaFileMode, file);
  if (error != 0 && error != ENOENT) {
    sayWhy(path, error);
    return Creation::failed;
  }
  return fillFile(std::move(file), path, volume, type);
}

// Reading and writing whole slots, as they stand in the file.
bool readSlot(int file, std::uint64_t offset, QuotaSlot& slot) {
  const auto count = retryOnInterrupt(
      [&] { return ::pread(file, slot.data(), slot.size(), static_cast<off_t>(offset)); });
  return count == static_cast<ssize_t>(slot.size());
}

bool writeSlot(int file, std::uint64_t offset, const QuotaSlot& slot) {
  const auto count = retryOnInterrupt(
      [&] { return ::pwrite(file, slot.data(), slot.size(), static_cast<off_t>(offset)); });
  return count == static_cast<ssize_t>(slot.size());
}

std::uint32_t wordAt(const QuotaSlot& slot, std::size_t offset) {
  std::uint32_t word = 0;
  std::memcpy(&word, slot.data() + offset, sizeof word);
  return word;
}

enum class HeaderCheck : std::uint8_t { fits, unreadable, invalid };

HeaderCheck checkHeader(int file, QuotaType type, std::uint32_t& maxentries) {
  QuotaSlot header{};
  if (!readSlot(file, 0, header)) return HeaderCheck::unreadable;
  // Deliberate: the words are taken as they stand, not from their big-endian order.
  maxentries = wordAt(header, 8);
  if (isQuotaHeaderOf(type, wordAt(header, 0), wordAt(header, 4), maxentries)) {
    return HeaderCheck::fits;
  }
  (void)std::fputs("quota: invalid quota file header\n", stderr);
  return HeaderCheck::invalid;
}

enum class Search : std::uint8_t { ended, failed, exhausted };

// Ends at the slot of the id or a free one; `slot` is the last one that was read.
Search findSlot(int file, std::uint32_t id, std::uint32_t maxentries, QuotaSlot& slot,
                std::uint64_t& offset) {
  for (QuotaProbe probe(id, maxentries); !probe.atEnd(); probe.next()) {
    offset = quotaSlotOffset(probe.slot());
    if (!readSlot(file, offset, slot)) return Search::failed;
    const std::uint32_t found = wordAt(slot, kQuotaIdOffset);
    if (found == 0 || found == id) return Search::ended;
  }
  return Search::exhausted;
}

}  // namespace

int qfcreate(const std::string& mountPoint, QuotaType type) {
  std::vector<MountedVolume> volumes;
  if (services().volumeInfo->getmntinfo(volumes) != 0 || volumes.empty()) return -1;
  for (const MountedVolume& volume : volumes) {
    if (volume.f_mntonname != mountPoint) continue;
    if (createOn(mountPoint, type) == Creation::done) break;
  }
  return 0;
}

int qfinit(int file, const VolumeStatistics& volume, QuotaType type) {
  QuotaFileHeader header;
  header.magic = isKnownType(type) ? quotamagic[static_cast<std::size_t>(type)] : 0;
  header.maxentries = quotaTableSize(type, volume.f_bsize, volume.f_blocks);
  const auto size = static_cast<off_t>(quotaFileSize(header.maxentries));
  (void)errnoOf([&] { return ::ftruncate(file, size); });
  (void)writeSlot(file, 0, encodeQuotaHeader(header));
  return 0;
}

int qflookup(int file, std::uint32_t id, QuotaType type, QuotaSlot& entry) {
  entry = {};
  if (id == 0) return 0;
  std::uint32_t maxentries = 0;
  if (checkHeader(file, type, maxentries) != HeaderCheck::fits) return -1;
  std::uint64_t offset = 0;
  return findSlot(file, id, maxentries, entry, offset) == Search::failed ? -1 : 0;
}

int qfupdate(int file, std::uint32_t id, QuotaType type, QuotaSlot& entry) {
  if (id == 0) return 0;
  std::uint32_t maxentries = 0;
  const HeaderCheck check = checkHeader(file, type, maxentries);
  // Deliberate: another code than qflookup's.
  if (check == HeaderCheck::invalid) return kInvalidHeader;
  if (check == HeaderCheck::unreadable) return -1;
  QuotaSlot present{};
  std::uint64_t offset = 0;
  const Search search = findSlot(file, id, maxentries, present, offset);
  if (search == Search::exhausted) errno = ENOSPC;
  if (search != Search::ended) return -1;
  std::memcpy(entry.data() + kQuotaIdOffset, &id, sizeof id);
  return writeSlot(file, offset, entry) ? 0 : -1;
}

}  // namespace paddock
