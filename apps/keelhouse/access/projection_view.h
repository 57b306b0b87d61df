// `acl show --projection`: what the kernel's own ACL says and cannot say, for people and programs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/principal.h"
#include "base/value.h"
#include "keelhouse/access/ace.h"
#include "keelhouse/access/kernel_acl.h"
#include "keelhouse/access/principals.h"

namespace paddock::keelhouse {

// What the kernel's own POSIX ACL cannot say of an extended ACL.
struct ProjectedEntry {
  Ace ace;
  std::optional<Principal> who;  // absent: no uid and no gid of this system
};

// For each entry what the kernel cannot say of it, a text each; empty where the kernel says the
// same. `owner` is the object's owner. The kernel has a read, a write and an execute bit for each
// user and group; it takes the largest of what a user's groups get; its default ACL holds for files
// and folders alike and goes on to every level.
std::vector<std::vector<std::string>> beyondKernel(const std::vector<ProjectedEntry>& entries,
                                                   bool folder,
                                                   const std::optional<std::uint32_t>& owner);

struct Projection {
  struct Entry {
    std::string who;                        // as it can be typed
    std::optional<unsigned> access;         // the bits of the kernel's entry; absent: it has none
    std::optional<unsigned> defaultAccess;  // those of its default ACL
    bool held = false;                      // the kernel has an entry wherever this one applies
    std::vector<std::string> beyond;
  };
  std::vector<Entry> entries;
  std::string kernelError;  // why the kernel's ACL cannot be read; empty when it can
  bool kernelHasAcl = false;
};

// `acl` and `privileges` as the daemon read them.
Projection makeProjection(const Array& acl, const Dictionary& privileges, const KernelAcls& kernel,
                          Principals& principals);

std::string formatProjection(const std::string& path, const Projection& projection);

// An array with a dictionary for each entry: "who", "access" and "default" (where the kernel has an
// entry), "beyond".
Value projectionValue(const Projection& projection);

}  // namespace paddock::keelhouse
