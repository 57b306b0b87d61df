#include "effectiveprivs/path_facts.h"

#include <fcntl.h>
#include <linux/dqblk_xfs.h>
#include <linux/quota.h>
#include <sys/quota.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

#include "base/system_call.h"
#include "effectiveprivs/effectiveprivs_failure.h"
#include "effectiveprivs/names.h"
#include "platform/linux/files/file_object.h"

namespace paddock::effectiveprivs {

namespace {

using posix_acl::Bits;

bool canSearch(const KernelObject& folder, const KernelPerson& person) {
  return person.isRoot() ||
         (kernelBits(folder, {person.uid, person.gids}).bits & posix_acl::kExecute) != 0;
}

// Whether the three classes and everybody named can search it alike.
bool isOpenToAll(const KernelObject& folder) {
  const posix_acl::Classes classes = posix_acl::classesOf(folder.mode);
  return !folder.acl && (classes.owner & classes.group & classes.others & posix_acl::kExecute) != 0;
}

std::string modeDigits(mode_t mode) {
  std::string text(3, '0');
  for (std::size_t at = 0; at < text.size(); ++at)
    text[at] = static_cast<char>('0' + (mode >> (6 - 3 * at) & 7U));
  return text;
}

int quotaCall(int file, unsigned command, unsigned type, std::uint32_t id, void* address) {
  return errnoOf(
      [&] { return ::syscall(SYS_quotactl_fd, file, QCMD(command, type), id, address); });
}

bool isEnforced(int file, unsigned type) {
  fs_quota_statv state{};
  state.qs_version = FS_QSTATV_VERSION1;
  const unsigned flag = type == USRQUOTA ? FS_QUOTA_UDQ_ENFD : FS_QUOTA_GDQ_ENFD;
  return quotaCall(file, Q_XGETQSTATV, type, 0, &state) == 0 && (state.qs_flags & flag) != 0;
}

bool isUsedUp(std::uint64_t used, std::uint64_t more, std::uint64_t soft, std::uint64_t hard,
              std::uint64_t deadline) {
  if (hard != 0 && used + more > hard) return true;
  return soft != 0 && used > soft && deadline != 0 &&
         deadline <= static_cast<std::uint64_t>(std::time(nullptr));
}

// Whether nothing more can be stored for that user or group.
bool isFull(int file, unsigned type, std::uint32_t id, std::uint64_t block, bool isFolder) {
  if (!isEnforced(file, type)) return false;
  if_dqblk quota{};
  if (quotaCall(file, Q_GETQUOTA, type, id, &quota) != 0) return false;
  constexpr std::uint64_t kUnit = QIF_DQBLKSIZE;
  return isUsedUp(quota.dqb_curspace, block, quota.dqb_bsoftlimit * kUnit,
                  quota.dqb_bhardlimit * kUnit, quota.dqb_btime) ||
         (isFolder && isUsedUp(quota.dqb_curinodes, 1, quota.dqb_isoftlimit, quota.dqb_ihardlimit,
                               quota.dqb_itime));
}

const char* wordOf(KernelClass who) {
  switch (who) {
    case KernelClass::owner:
      return "the owner";
    case KernelClass::namedUser:
      return "the user";
    case KernelClass::group:
      return "the group";
    case KernelClass::others:
      break;
  }
  return "others";
}

std::string bitsWords(const KernelBits& bits) {
  std::string text = "---";
  if ((bits.bits & posix_acl::kRead) != 0) text[0] = 'r';
  if ((bits.bits & posix_acl::kWrite) != 0) text[1] = 'w';
  if ((bits.bits & posix_acl::kExecute) != 0) text[2] = 'x';
  return "the kernel gives " + std::string(wordOf(bits.who)) + " " + text;
}

samba::DosReadOnly readReadOnly(const PinnedObject& object) {
  std::string value;
  const int error = object.isFolder() ? ENODATA
                                      : linuxExtendedAttributes().get(
                                            object.number(), samba::kDosAttributesName, value);
  if (error == ENODATA || error == EOPNOTSUPP) return samba::DosReadOnly::no;
  if (error != 0) throw failureOf("read the attributes of", object.path(), error);
  return samba::dosReadOnlyIn(value);
}

}  // namespace

void restrict(DoorRight& right, const DoorRight& other) {
  if (right.access == Access::no || other.access == Access::yes) return;
  if (right.access == Access::yes || other.access == Access::no) right = other;
}

void restrict(DoorRights& rights, const DoorRights& other) {
  restrict(rights.read, other.read);
  restrict(rights.write, other.write);
}

PathFacts::PathFacts(const PinnedObject& object, Accounts& names)
    : path_(object.realPath()),
      isFolder_(object.isFolder()),
      device_(object.status().st_dev),
      kernel_(ObjectReader::readKernel(object)),
      names_(names) {
  for (auto folder = object.parent(); folder; folder = folder->parent())
    above_.push_back({folder->path(), ObjectReader::readKernel(*folder), folder->status().st_dev});
  int number = -1;
  const int error = errnoOf([&] { return ::fcntl(object.number(), F_DUPFD_CLOEXEC, 0); }, &number);
  if (error != 0) throw failureOf("hold", path_, error);
  file_ = FileDescriptor(number);
  readOnly_ = readReadOnly(object);
}

const FolderAbove* PathFacts::folderThatStops(const KernelPerson& person,
                                              const std::string& start) const {
  if (start == path_) return nullptr;
  const FolderAbove* found = nullptr;
  for (const FolderAbove& folder : above_) {
    if (!canSearch(folder.kernel, person)) found = &folder;
    if (folder.path == start) break;
  }
  return found;
}

std::string PathFacts::barrier(const KernelPerson& person, const std::string& start) const {
  const FolderAbove* folder = folderThatStops(person, start);
  if (folder == nullptr) return {};
  return "stopped at " + folder->path + ", mode " + modeDigits(folder->kernel.mode) + ", owner " +
         userName(names_, folder->kernel.uid);
}

DoorRights PathFacts::kernelRights(const KernelPerson& person, const std::string& start) const {
  DoorRights rights;
  if (const std::string stop = barrier(person, start); !stop.empty()) return noRights(stop);
  if (!person.isRoot()) {
    const KernelBits bits = kernelBits(kernel_, {person.uid, person.gids});
    const Bits toWrite = isFolder_ ? posix_acl::kWrite | posix_acl::kExecute : posix_acl::kWrite;
    if ((bits.bits & posix_acl::kRead) == 0) rights.read = {Access::no, bitsWords(bits)};
    if ((bits.bits & toWrite) != toWrite)
      rights.write = {Access::no, bitsWords(bits)};
    else if (isFolder_ && bits.isWritingApart)
      rights.write = {Access::no, bitsWords(bits) + ", but by no one group"};
  }
  restrict(rights.write, room(person));
  return rights;
}

DoorRights PathFacts::modeRights(const KernelPerson& person) const {
  const posix_acl::Classes classes = posix_acl::classesOf(kernel_.mode);
  Bits bits = classes.others;
  if (std::find(person.gids.begin(), person.gids.end(), kernel_.gid) != person.gids.end())
    bits = static_cast<Bits>(bits | classes.group);
  if (person.uid == kernel_.uid) bits = static_cast<Bits>(bits | classes.owner);
  const DoorRight refused{Access::no, "there is no list, and the mode does not give it"};
  DoorRights rights;
  if ((bits & posix_acl::kRead) == 0) rights.read = refused;
  if ((bits & posix_acl::kWrite) == 0) rights.write = refused;
  return rights;
}

// Entries can be added to an append-only folder.
DoorRight PathFacts::seal() const {
  struct statx status {};
  const int error =
      errnoOf([&] { return ::statx(file_.get(), "", AT_EMPTY_PATH, STATX_TYPE, &status); });
  if (error != 0) throw failureOf("read the flags of", path_, error);
  if ((status.stx_attributes & STATX_ATTR_IMMUTABLE) != 0)
    return {Access::no, "it is immutable (chattr +i)"};
  if ((status.stx_attributes & STATX_ATTR_APPEND) != 0 && !isFolder_)
    return {Access::no, "nothing but appending to it works (chattr +a)"};
  struct statvfs volume {};
  const bool isMountedReadOnly = errnoOf([&] { return ::fstatvfs(file_.get(), &volume); }) == 0 &&
                                 (volume.f_flag & ST_RDONLY) != 0;
  if (isMountedReadOnly) return {Access::no, "the file system is mounted read-only"};
  return {};
}

DoorRight PathFacts::room(const KernelPerson& person) const {
  if (DoorRight sealed = seal(); sealed.access != Access::yes) return sealed;
  struct statvfs volume {};
  if (errnoOf([&] { return ::fstatvfs(file_.get(), &volume); }) == 0) {
    const bool isFullDisk = person.isRoot() ? volume.f_bfree == 0 : volume.f_bavail == 0;
    if (volume.f_blocks != 0 && isFullDisk) return {Access::no, "the disk is full"};
    if (isFolder_ && volume.f_files != 0 && volume.f_favail == 0)
      return {Access::no, "the disk has no room for more files"};
  }
  // Root can write regardless of limits.
  if (person.isRoot()) return {};
  if (const std::string fault = quotaFault(person); !fault.empty()) return {Access::no, fault};
  return {};
}

// Usage is charged to the owner: for the user when it is a new file, for its owner when it is there
// already.
std::string PathFacts::quotaFault(const KernelPerson& person) const {
  struct statvfs volume {};
  if (errnoOf([&] { return ::fstatvfs(file_.get(), &volume); }) != 0) return {};
  const std::uint32_t uid = isFolder_ ? person.uid : kernel_.uid;
  if (isFull(file_.get(), USRQUOTA, uid, volume.f_bsize, isFolder_))
    return "the quota of user " + userName(names_, uid) + " is used up";
  const bool isOfFolder = !isFolder_ || (kernel_.mode & S_ISGID) != 0 || person.gids.empty();
  const std::uint32_t gid = isOfFolder ? kernel_.gid : person.gids.front();
  if (isFull(file_.get(), GRPQUOTA, gid, volume.f_bsize, isFolder_))
    return "the quota of group " + groupName(names_, gid) + " is used up";
  return {};
}

std::vector<std::uint32_t> PathFacts::gidsThatMatter() const {
  std::vector<std::uint32_t> gids;
  const auto add = [&gids](const KernelObject& object) {
    gids.push_back(object.gid);
    if (!object.acl) return;
    for (const posix_acl::Named& named : object.acl->groups) gids.push_back(named.id);
  };
  add(kernel_);
  for (const FolderAbove& folder : above_)
    if (!isOpenToAll(folder.kernel)) add(folder.kernel);
  std::sort(gids.begin(), gids.end());
  gids.erase(std::unique(gids.begin(), gids.end()), gids.end());
  return gids;
}

std::vector<std::uint32_t> PathFacts::uidsThatMatter() const {
  std::vector<std::uint32_t> uids;
  const auto add = [&uids](const KernelObject& object) {
    uids.push_back(object.uid);
    if (!object.acl) return;
    for (const posix_acl::Named& named : object.acl->users) uids.push_back(named.id);
  };
  add(kernel_);
  for (const FolderAbove& folder : above_)
    if (!isOpenToAll(folder.kernel)) add(folder.kernel);
  return uids;
}

}  // namespace paddock::effectiveprivs
