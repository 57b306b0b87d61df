#include "copyprivs/named_objects.h"

#include <sched.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>

#include "base/system_call.h"

namespace paddock::copyprivs {

namespace {

// The kernel makes room for as many bytes as are asked for. A larger value is looked at by
// descriptor.
constexpr std::size_t kUsualSize = 1024;

}  // namespace

NamedObjects::NamedObjects() : isUsable_(::unshare(CLONE_FS) == 0) {}

bool NamedObjects::enter(int folder) { return isUsable_ && ::fchdir(folder) == 0; }

int NamedObjects::get(const char* object, const char* name, std::string& value) {
  std::array<char, kUsualSize> buffer;
  std::size_t size = 0;
  value.clear();
  const int error =
      errnoOf([&] { return ::lgetxattr(object, name, buffer.data(), buffer.size()); }, &size);
  if (error == 0) value.assign(buffer.data(), size);
  return error;
}

}  // namespace paddock::copyprivs
