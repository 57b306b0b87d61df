// The users and groups of the local directory as accounts of the host: in the files passwd, group
// and shadow that libnss-extrausers reads.
//
// In each file, the lines between two comments are managed (managed_block.h), and those around them
// are left unchanged; account_lines.h specifies the lines. Only a file whose contents change is
// replaced, as text_file.h says; a new passwd and group have the mode 0644, a new shadow 0640 of
// the group "shadow" where the host has one, else 0600, and an existing shadow loses the
// permissions of others. No file is created to be empty.
//
// The folder is made when it is missing. One that is a symlink, that another user owns or that
// others may write to is left alone: its entries could lead anywhere.
//
// The host's own accounts, which are never written, are in its passwd and group, in the lines of
// others in these files, and in the other sources of the name service switch (nss_sources.h).
//
// Thread-safe. A lock file excludes writers in other processes, and other objects.
#pragma once

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "platform/linux/accounts/account_cache.h"
#include "platform/linux/accounts/nss_sources.h"
#include "platform/linux/database/local_store.h"
#include "platform/logger.h"
#include "platform/machine_information.h"

namespace paddock {

struct ExtraUsersOptions {
  std::string folder;
  // Created with mode 0600, so that no other user can hold the lock.
  std::string lockPath;
  // They must outlive this object.
  Clock* clock = nullptr;
  Logger* logger = nullptr;
  std::string hostPasswdPath = "/etc/passwd";
  std::string hostGroupPath = "/etc/group";
  NssSources::Options nss = {};
};

class ExtraUsers {
 public:
  // Interval after which `refresh` retries after a failure, and rechecks sources without change
  // detection.
  static constexpr std::chrono::minutes kRetry{1};
  static constexpr std::chrono::hours kLookAgain{1};

  explicit ExtraUsers(const ExtraUsersOptions& options);
  ExtraUsers(const ExtraUsers&) = delete;
  ExtraUsers& operator=(const ExtraUsers&) = delete;
  ~ExtraUsers();

  // Brings the files up to date with the store. Each failure, and each omission, is logged, and
  // again only after it had ceased in between. `generation` is the database's.
  void write(LocalStore& store, std::uint64_t generation) noexcept;
  // The same, unless nothing has changed.
  void refresh(LocalStore& store, std::uint64_t generation) noexcept;
  // Reports a failure of the caller to access the store.
  void reportTrouble(const std::string& text) noexcept;

 private:
  class Run;
  struct Seen {
    std::uint64_t generation = 0;
    SqliteConnection::ChangeMark mark{};
    std::vector<AccountFilesStamp::File> files;
    friend bool operator==(const Seen&, const Seen&) = default;
  };

  // The state sampled before writing, so that a concurrent change is detected the next time.
  Seen look(LocalStore& store, std::uint64_t generation) const;
  void work(LocalStore& store, const Seen& seen) PADDOCK_REQUIRES(mutex_);
  void report(const std::set<std::string>& troubles, std::set<std::string> remarks)
      PADDOCK_REQUIRES(mutex_);
  static void logNew(Logger& logger, int priority, const std::set<std::string>& now,
                     std::set<std::string>& before);

  const ExtraUsersOptions options_;
  NssSources sources_;
  const AccountFiles hostFiles_;
  Mutex mutex_;
  std::set<std::string> troubles_ PADDOCK_GUARDED_BY(mutex_);
  std::set<std::string> remarks_ PADDOCK_GUARDED_BY(mutex_);
  Seen seen_ PADDOCK_GUARDED_BY(mutex_);
  std::chrono::steady_clock::time_point nextLook_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock
