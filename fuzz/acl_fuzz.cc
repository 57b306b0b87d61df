#include <cstdint>
#include <cstdlib>
#include <vector>

#include "platform/linux/acl/nt_acl.h"

// What decodes is written again, and that decodes to the same.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace nt_acl = paddock::nt_acl;
  // A copy of exactly this size on the heap, so that reading behind it is seen.
  const std::vector<char> bytes(data, data + size);
  const auto descriptor = nt_acl::decode({bytes.data(), bytes.size()});
  if (!descriptor) return 0;
  const auto written = nt_acl::encode(*descriptor);
  if (!written || nt_acl::decode(*written) != descriptor) std::abort();
  if (nt_acl::encode(*nt_acl::decode(*written)) != written) std::abort();
  return 0;
}
