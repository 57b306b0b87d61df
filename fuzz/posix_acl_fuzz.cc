#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/linux/acl/posix_acl.h"

// What can be read is written as a value that reads as the same list once its ids are sorted.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace posix_acl = paddock::posix_acl;
  const std::string text(data, data + size);
  const auto acl = posix_acl::decode(text);
  if (!acl) return 0;
  const std::string written = posix_acl::encode(*acl);
  if (written.size() != text.size()) std::abort();
  const auto again = posix_acl::decode(written);
  if (!again || posix_acl::encode(*again) != written) std::abort();
  return 0;
}
