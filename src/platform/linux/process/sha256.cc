#include "platform/linux/process/sha256.h"

#include <nettle/sha2.h>

namespace paddock {

std::array<std::uint8_t, 32> sha256(std::string_view text) {
  sha256_ctx context;
  ::sha256_init(&context);
  ::sha256_update(&context, text.size(), reinterpret_cast<const std::uint8_t*>(text.data()));
  std::array<std::uint8_t, 32> digest{};
  ::sha256_digest(&context, digest.size(), digest.data());
  return digest;
}

}  // namespace paddock
