#include "daemon/http/state_tag.h"

#include <nettle/sha2.h>

#include <array>

namespace paddock {

std::string stateTag(std::string_view state) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  sha256_ctx context;
  ::sha256_init(&context);
  ::sha256_update(&context, state.size(), reinterpret_cast<const std::uint8_t*>(state.data()));
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest{};
  ::sha256_digest(&context, digest.size(), digest.data());
  std::string text;
  for (const std::uint8_t byte : digest) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 15U];
  }
  return text;
}

}  // namespace paddock
