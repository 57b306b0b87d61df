#include "keelhouse/volume/volume_root.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <system_error>

#include "base/system_call.h"
#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

namespace {

struct Free {
  void operator()(char* text) const { std::free(text); }  // NOLINT(*-no-malloc): realpath's
};

Failure cannotFind(const std::string& path, int error) {
  return failure("the volume of " + path +
                 " cannot be found: " + std::generic_category().message(error));
}

// Without links: the folders above are those of the object itself.
std::string realPathOf(const std::string& path) {
  const std::unique_ptr<char, Free> real(::realpath(path.c_str(), nullptr));
  if (!real) throw cannotFind(path, errno);
  return real.get();
}

bool isMountRoot(const std::string& path) {
  struct statx attributes {};
  const int error =
      errnoOf([&] { return ::statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS, &attributes); });
  if (error != 0) throw cannotFind(path, error);
  return (attributes.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

}  // namespace

std::string volumeRootOf(const std::string& path) {
  std::string at = realPathOf(path);
  while (at != "/" && !isMountRoot(at)) at.resize(std::max<std::size_t>(at.rfind('/'), 1));
  return at;
}

void requireVolumeRoot(const std::string& path) {
  const std::string root = volumeRootOf(path);
  if (root == realPathOf(path)) return;
  throw failure(path + " is not the root of a volume\nIt lies on the volume " + root +
                ", and quotas are a whole volume's.");
}

}  // namespace paddock::keelhouse
