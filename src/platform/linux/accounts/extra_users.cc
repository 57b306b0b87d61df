#include "platform/linux/accounts/extra_users.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <stdexcept>

#include "base/file_access.h"
#include "base/system_call.h"
#include "base/text.h"
#include "platform/linux/accounts/account_lines.h"
#include "platform/linux/files/linux_text_files.h"
#include "platform/linux/files/managed_block.h"

namespace paddock {

namespace {

constexpr const char* kShadow = "shadow";
constexpr mode_t kOthers = 07;
constexpr mode_t kModeOfFolder = 0755;
constexpr unsigned kOwn = static_cast<unsigned>(-1);  // see chown(2)

// Keeps other writers away until its end.
FileDescriptor lockFile(const std::string& path) {
  int descriptor = -1;
  int error =
      errnoOf([&] { return ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600); },
              &descriptor);
  FileDescriptor file(descriptor);
  if (error == 0) error = errnoOf([&] { return ::flock(file.get(), LOCK_EX); });
  if (error != 0) throw systemError(error, "locking", printable(path));
  return file;
}

// The contents of a file of the host's; nothing when there is none.
std::string hostFile(const std::string& path) {
  std::string contents;
  const int error = LinuxTextFiles().read(path, contents);
  if (error != 0 && error != ENOENT) throw systemError(error, "reading", printable(path));
  return contents;
}

class FilesAndSources final : public HostAccounts {
 public:
  explicit FilesAndSources(NssSources& sources) : sources_(sources) {}

  void add(PrincipalType type, std::string_view lines) { index(type).add(lines); }

  std::optional<std::uint32_t> idOf(PrincipalType type, const std::string& name) override {
    const auto id = index(type).idOf(name);
    return id ? id : sources_.idOf(type, name);
  }
  bool has(const Principal& principal) override {
    return index(principal.type).has(principal.id) || sources_.has(principal);
  }
  std::optional<std::uint32_t> shadowGroup() { return groups_.idOf(kShadow); }

 private:
  AccountLinesIndex& index(PrincipalType type) {
    return type == PrincipalType::user ? users_ : groups_;
  }

  AccountLinesIndex users_;
  AccountLinesIndex groups_;
  NssSources& sources_;
};

}  // namespace

// One bringing up to date.
class ExtraUsers::Run {
 public:
  Run(const ExtraUsersOptions& options, NssSources& sources)
      : options_(options), sources_(sources), host_(sources) {}

  // Throws what ends it early.
  void work(LocalStore& store) {
    const FileDescriptor lock = lockFile(options_.lockPath);
    if (isThere()) openFolder();
    for (File& file : files_) read(file);
    host_.add(PrincipalType::user, hostFile(options_.hostPasswdPath));
    host_.add(PrincipalType::group, hostFile(options_.hostGroupPath));
    sources_.readConfiguration();
    // Read last: another writer's change is the newer one.
    AccountLines lines = accountLines(readAccountRecords(store), host_);
    for (std::string& remark : lines.remarks) remarks.insert(std::move(remark));
    files_[0].wanted.lines = std::move(lines.group);
    files_[1].wanted.lines = std::move(lines.shadow);
    files_[2].wanted.lines = std::move(lines.passwd);
    for (const File& file : files_) write(file);
  }

  std::set<std::string> troubles;
  std::set<std::string> remarks;

 private:
  struct File {
    const char* name;
    bool isSecret = false;
    std::string present = {};
    ManagedBlock wanted = {};
  };

  bool isThere() const {
    struct stat status {};
    return ::lstat(options_.folder.c_str(), &status) == 0 || errno != ENOENT;
  }
  void openFolder() { folder_ = openOwnFolder(options_.folder, kModeOfFolder); }
  void makeFolder() {
    openFolder();
    // Everybody reads the accounts, whatever the process's umask.
    if (::fchmod(folder_.get(), kModeOfFolder) != 0)
      throw systemError(errno, "making", printable(options_.folder));
  }

  // By the descriptor, so that it is the folder that was checked.
  std::string pathOf(const File& file) const {
    return "/proc/self/fd/" + std::to_string(folder_.get()) + "/" + file.name;
  }
  std::string shownPathOf(const File& file) const {
    return printable(options_.folder) + "/" + file.name;
  }

  void read(File& file) {
    if (!folder_) return;
    const int error = LinuxTextFiles().read(pathOf(file), file.present);
    if (error != 0 && error != ENOENT) throw systemError(error, "reading", shownPathOf(file));
    auto block = splitManagedBlock(file.present);
    // The owner of its lines is then ambiguous.
    if (!block)
      throw std::runtime_error(shownPathOf(file) +
                               ": the comments around our lines are not one pair");
    file.wanted = std::move(*block);
    if (file.isSecret) return;
    const bool isGroup = file.name == std::string("group");
    const PrincipalType type = isGroup ? PrincipalType::group : PrincipalType::user;
    host_.add(type, file.wanted.before);
    host_.add(type, file.wanted.after);
  }

  void write(const File& file) {
    const std::string contents = joinManagedBlock(file.wanted);
    if (contents == file.present && !isExposed(file)) return;
    if (!folder_) makeFolder();
    const int error =
        LinuxTextFiles::replaceAs(pathOf(file), contents, [&](const FileOwnership* present) {
          return file.isSecret ? secretOwnership(present) : publicOwnership(present);
        });
    if (error != 0) troubles.insert(systemError(error, "writing", shownPathOf(file)).what());
  }

  // A secret file that others may use.
  bool isExposed(const File& file) const {
    if (!file.isSecret || !folder_) return false;
    struct stat status {};
    return ::stat(pathOf(file).c_str(), &status) == 0 && (status.st_mode & kOthers) != 0;
  }

  static FileOwnership publicOwnership(const FileOwnership* present) {
    return present != nullptr ? *present : FileOwnership{kOwn, kOwn, 0644};
  }
  FileOwnership secretOwnership(const FileOwnership* present) {
    if (present != nullptr) return {present->owner, present->group, present->mode & ~kOthers};
    const auto group = ::geteuid() == 0 ? host_.shadowGroup() : std::nullopt;
    return group ? FileOwnership{kOwn, *group, 0640} : FileOwnership{kOwn, kOwn, 0600};
  }

  const ExtraUsersOptions& options_;
  NssSources& sources_;
  FilesAndSources host_;
  FileDescriptor folder_;
  // A user is in passwd last, when the rest is in its place.
  std::array<File, 3> files_{File{"group"}, File{kShadow, true}, File{"passwd"}};
};

ExtraUsers::ExtraUsers(const ExtraUsersOptions& options)
    : options_(options),
      sources_(*options.clock, options.nss),
      hostFiles_(*options.clock, {options.hostPasswdPath, options.hostGroupPath}) {}
ExtraUsers::~ExtraUsers() = default;

void ExtraUsers::write(LocalStore& store, std::uint64_t generation) noexcept {
  const MutexLock lock(mutex_);
  try {
    work(store, look(store, generation));
  } catch (const std::exception& error) {
    report({error.what()}, {});
  }
}

void ExtraUsers::refresh(LocalStore& store, std::uint64_t generation) noexcept {
  const MutexLock lock(mutex_);
  const bool isEarly = options_.clock->monotonicNow() < nextLook_;
  try {
    if (!troubles_.empty() && isEarly) return;
    const Seen seen = look(store, generation);
    if (seen == seen_ && isEarly) return;
    work(store, seen);
  } catch (const std::exception& error) {
    report({error.what()}, {});
  }
}

void ExtraUsers::reportTrouble(const std::string& text) noexcept {
  const MutexLock lock(mutex_);
  report({text}, {});
}

ExtraUsers::Seen ExtraUsers::look(LocalStore& store, std::uint64_t generation) const {
  return {generation, store.connection().changeMark(), hostFiles_.stamp().files};
}

void ExtraUsers::work(LocalStore& store, const Seen& seen) {
  Run run(options_, sources_);
  run.work(store);
  seen_ = seen;
  report(run.troubles, std::move(run.remarks));
}

void ExtraUsers::report(const std::set<std::string>& troubles, std::set<std::string> remarks) {
  const auto pause = troubles.empty() ? std::chrono::seconds(kLookAgain) : kRetry;
  nextLook_ = options_.clock->monotonicNow() + pause;
  // A run that came to an end early knows no better than the one before.
  if (!troubles.empty()) remarks.insert(remarks_.begin(), remarks_.end());
  logNew(*options_.logger, kLogError, troubles, troubles_);
  logNew(*options_.logger, kLogWarning, remarks, remarks_);
}

void ExtraUsers::logNew(Logger& logger, int priority, const std::set<std::string>& now,
                        std::set<std::string>& before) {
  for (const std::string& line : now) {
    if (!before.contains(line)) logger.log(priority, "accounts: " + line);
  }
  before = now;
}

}  // namespace paddock
