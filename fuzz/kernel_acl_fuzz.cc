#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "keelhouse/access/kernel_acl.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

// What is read has no more entries than the bytes have room for, and no bits that the kernel does
// not know.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const void* bytes = data;
  const auto acl = paddock::keelhouse::parseKernelAcl({static_cast<const char*>(bytes), size});
  if (!acl) return 0;
  require(acl->entries.size() <= (size - 4) / 8);
  for (const auto& entry : acl->entries) require(entry.bits <= 7);
  return 0;
}
