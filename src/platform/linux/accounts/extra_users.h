// The users and groups of the local directory as accounts of the host: in the files passwd, group
// and shadow that libnss-extrausers reads.
//
// In each file, the lines between two comments are ours (managed_block.h), and those around them
// stay as they are; account_lines.h says what the lines are. Only a file whose contents change is
// replaced, as text_file.h says; a new passwd and group have the mode 0644, a new shadow 0640 of
// the group "shadow" where the host has one, else 0600, and an earlier shadow loses what others
// could do with it. A file is not made to hold nothing.
//
// The folder is made when it is missing. One that is a link, that another user owns or that others
// may write to is left alone: what is in it could lead anywhere.
//
// What the host has of its own, which is never written, is in its passwd and group, in the lines of
// others in these files, and in the other sources of the name service switch (nss_sources.h).
//
// Any thread. A lock keeps writers in other processes, and other objects, away.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/linux/accounts/account_cache.h"
#include "platform/linux/accounts/nss_sources.h"
#include "platform/linux/database/local_store.h"
#include "platform/logger.h"

namespace paddock {

struct ExtraUsersOptions {
  std::string folder;
  // Made with the mode 0600, so that nobody else can hold the lock.
  std::string lockPath;
  // The caller keeps them alive.
  Clock* clock = nullptr;
  Logger* logger = nullptr;
  std::string hostPasswdPath = "/etc/passwd";
  std::string hostGroupPath = "/etc/group";
  NssSources::Options nss = {};
};

class ExtraUsers {
 public:
  // How long after a failure `refresh` tries again, and after which time it looks again at what it
  // has no sign of.
  static constexpr std::chrono::minutes kRetry{1};
  static constexpr std::chrono::hours kLookAgain{1};

  explicit ExtraUsers(const ExtraUsersOptions& options);
  ExtraUsers(const ExtraUsers&) = delete;
  ExtraUsers& operator=(const ExtraUsers&) = delete;
  ~ExtraUsers();

  // Brings the files up to date with the store. Trouble, and what is left out, is a line in the log
  // each, repeated only after it has gone meanwhile.
  // `generation` is the database's.
  void write(LocalStore& store, std::uint64_t generation) noexcept;
  // The same, unless it would find what it found before.
  void refresh(LocalStore& store, std::uint64_t generation) noexcept;
  // A trouble of the caller's in getting to the store.
  void reportTrouble(const std::string& text) noexcept;

 private:
  class Run;
  struct Seen {
    std::uint64_t generation = 0;
    SqliteConnection::ChangeMark mark{};
    std::vector<AccountFilesStamp::File> files;
    friend bool operator==(const Seen&, const Seen&) = default;
  };

  // What is looked at before the work, so that what changes meanwhile is found the next time.
  Seen look(LocalStore& store, std::uint64_t generation) const;
  void work(LocalStore& store, const Seen& seen);
  void report(const std::set<std::string>& troubles, std::set<std::string> remarks);
  static void logNew(Logger& logger, int priority, const std::set<std::string>& now,
                     std::set<std::string>& before);

  const ExtraUsersOptions options_;
  NssSources sources_;
  const AccountFiles hostFiles_;
  std::mutex mutex_;
  std::set<std::string> troubles_;
  std::set<std::string> remarks_;
  Seen seen_;
  std::chrono::steady_clock::time_point nextLook_;
};

}  // namespace paddock
