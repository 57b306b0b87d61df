// Maps each GUID derived from a SID (nt_acl::foreignGuid) to that SID, in a small SQLite file that
// several processes may share. docs/formats/acl.md describes it.
//
// Each change is one transaction: a process that is killed leaves the file with the change or
// without it. It is not synced to disk; every SID is also in the attribute that it was read from,
// and is recorded again when that is read. A GUID is a hash of its SID, so that a row can be
// verified; a file damaged by a power failure is set aside as PATH.damaged and recreated when the
// next SID is recorded. Beyond the capacity the oldest SIDs are evicted.
//
// Nothing is opened before the first call. Only recording makes a file, and writes: finding leaves
// one that is missing or damaged as it is. Thread-safe.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "base/guid.h"
#include "base/mutex.h"
#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/database/sqlite.h"

namespace paddock {

class RememberedSids {
 public:
  static constexpr std::int64_t kDefaultCapacity = 100000;

  explicit RememberedSids(std::string path, std::int64_t capacity = kDefaultCapacity);

  // Returns 0 when the SID is recorded under its GUID, now or already; EEXIST when another SID with
  // the same GUID is; else the errno of reading or writing the file. An existing row costs no
  // write. The file and its folder are created when missing.
  int remember(const nt_acl::Sid& sid);
  // Returns 0 with the SID; ENOENT when there is none, also in a file that is damaged or missing;
  // else an errno.
  int find(const Guid& guid, nt_acl::Sid& sid);

 private:
  // Throws DirectoryError.
  int rememberOnce(const nt_acl::Sid& sid) PADDOCK_REQUIRES(mutex_);
  // The open file; null when there is none.
  SqliteConnection* opened() PADDOCK_REQUIRES(mutex_);
  SqliteConnection& openedForWriting() PADDOCK_REQUIRES(mutex_);
  void setAside() PADDOCK_REQUIRES(mutex_);
  void insert(const std::string& guid, const std::string& sid) PADDOCK_REQUIRES(mutex_);

  const std::string path_;
  const std::int64_t capacity_;
  Mutex mutex_;
  std::unique_ptr<SqliteConnection> connection_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock
