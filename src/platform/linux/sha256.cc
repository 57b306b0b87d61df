#include "platform/linux/sha256.h"

#include <string>

namespace paddock {

namespace {

constexpr std::size_t kBlockBytes = 64;
constexpr std::size_t kLengthBytes = 8;

using State = std::array<std::uint32_t, 8>;

// The names of FIPS 180-4: 4.2.2 (K), 5.3.3 (H), 4.1.2 (the functions).
constexpr State kInitial = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                            0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
constexpr std::array<std::uint32_t, 64> kRound = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

constexpr std::uint32_t rotate(std::uint32_t word, unsigned by) {
  return word >> by | word << (32U - by);
}

std::array<std::uint32_t, 64> schedule(std::string_view block) {
  std::array<std::uint32_t, 64> words{};
  for (std::size_t at = 0; at < kBlockBytes; ++at)
    words[at / 4] = words[at / 4] << 8U | static_cast<unsigned char>(block[at]);
  for (std::size_t at = 16; at < words.size(); ++at) {
    const std::uint32_t early = words[at - 15];
    const std::uint32_t late = words[at - 2];
    words[at] = words[at - 16] + (rotate(early, 7) ^ rotate(early, 18) ^ early >> 3U) +
                words[at - 7] + (rotate(late, 17) ^ rotate(late, 19) ^ late >> 10U);
  }
  return words;
}

void compress(State& state, std::string_view block) {
  const auto words = schedule(block);
  auto [a, b, c, d, e, f, g, h] = state;
  for (std::size_t at = 0; at < words.size(); ++at) {
    const std::uint32_t first = h + (rotate(e, 6) ^ rotate(e, 11) ^ rotate(e, 25)) +
                                ((e & f) ^ (~e & g)) + kRound[at] + words[at];
    const std::uint32_t second =
        (rotate(a, 2) ^ rotate(a, 13) ^ rotate(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
    h = g;
    g = f;
    f = e;
    e = d + first;
    d = c;
    c = b;
    b = a;
    a = first + second;
  }
  const State worked = {a, b, c, d, e, f, g, h};
  for (std::size_t at = 0; at < state.size(); ++at) state[at] += worked[at];
}

// The text with the one bit, zeros and the length in bits behind it.
std::string padded(std::string_view text) {
  std::string message(text);
  message += '\x80';
  while ((message.size() + kLengthBytes) % kBlockBytes != 0) message += '\0';
  const std::uint64_t bits = std::uint64_t{text.size()} * 8;
  for (std::size_t at = kLengthBytes; at > 0; --at)
    message += static_cast<char>(bits >> (8 * (at - 1)));
  return message;
}

}  // namespace

std::array<std::uint8_t, 32> sha256(std::string_view text) {
  const std::string message = padded(text);
  State state = kInitial;
  for (std::size_t at = 0; at < message.size(); at += kBlockBytes)
    compress(state, std::string_view(message).substr(at, kBlockBytes));
  std::array<std::uint8_t, 32> digest{};
  for (std::size_t at = 0; at < digest.size(); ++at)
    digest[at] = static_cast<std::uint8_t>(state[at / 4] >> (24 - 8 * (at % 4)));
  return digest;
}

}  // namespace paddock
