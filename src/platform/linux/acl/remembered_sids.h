// Which SID each GUID made of a SID (nt_acl::foreignGuid) stands for, in a small SQLite file that
// several processes may share. docs/formats/acl.md describes it.
//
// Each change is one transaction: a process that is killed leaves the file with the change or
// without it. It is not waited for on the disk; every SID is also in the attribute that it was read
// from, and is remembered again when that is read. A GUID is a hash of its SID, so that a row is
// known to be right; a file that a power cut has damaged is set aside as PATH.damaged and begun
// anew. Of more SIDs than the capacity the ones that came first are forgotten.
//
// Nothing is opened, and no file made, before the first call. Any thread may call.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "base/guid.h"
#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/database/sqlite.h"

namespace paddock {

class RememberedSids {
 public:
  static constexpr std::int64_t kDefaultCapacity = 100000;

  explicit RememberedSids(std::string path, std::int64_t capacity = kDefaultCapacity);

  // 0 when the SID is remembered under its GUID, now or already; EEXIST when another SID with the
  // same GUID is; else the errno of what keeps the file from being read or written. What is there
  // already costs no write. The file is made when it is missing, its folder too.
  int remember(const nt_acl::Sid& sid);
  // 0 and the SID; ENOENT when there is none; else an errno.
  int find(const Guid& guid, nt_acl::Sid& sid);

 private:
  template <typename Work>
  int use(Work work);
  SqliteConnection& opened();
  void setAside();
  void insert(const std::string& guid, const std::string& sid);

  const std::string path_;
  const std::int64_t capacity_;
  std::mutex mutex_;
  std::unique_ptr<SqliteConnection> connection_;
};

}  // namespace paddock
