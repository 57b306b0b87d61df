// What the format can hold comes back as it was.
#include <gtest/gtest.h>

#include <random>

#include "platform/linux/acl/nt_acl.h"

namespace paddock::nt_acl {
namespace {

class Maker {
 public:
  explicit Maker(unsigned seed) : random_(seed) {}

  Descriptor descriptor() {
    Descriptor made;
    made.control = static_cast<std::uint16_t>(below(0x10000));
    if (below(8) != 0) made.owner = sid();
    if (below(8) != 0) made.group = sid();
    if (below(8) == 0) return made;
    made.control |= kControlListPresent;
    made.list.emplace();
    const std::size_t count = below(16) == 0 ? below(kMaximumEntries + 1) : below(12);
    for (std::size_t at = 0; at < count; ++at) made.list->push_back(ace());
    return made;
  }

 private:
  std::uint64_t below(std::uint64_t end) {
    return std::uniform_int_distribution<std::uint64_t>(0, end - 1)(random_);
  }

  Sid sid() {
    Sid made;
    made.authority = below(2) == 0 ? below(23) : below(std::uint64_t{1} << 48U);
    const std::size_t count = below(16);
    for (std::size_t at = 0; at < count; ++at)
      made.subAuthorities.push_back(static_cast<std::uint32_t>(random_()));
    return made;
  }

  // An entry of type 9 and more, with bytes behind its SID.
  void makeForeign(Ace& made) {
    const std::size_t extra = 4 * below(5);
    made.sid.subAuthorities.resize(2);
    made.type = static_cast<std::uint8_t>(0x11 + below(0x20));
    const std::size_t size = 24 + extra;
    made.foreign = {static_cast<char>(made.type), static_cast<char>(made.flags),
                    static_cast<char>(size), 0};
    append(made.foreign, made.mask);
    made.foreign += {1, 2};
    for (int shift = 40; shift >= 0; shift -= 8)
      made.foreign += static_cast<char>(made.sid.authority >> static_cast<unsigned>(shift));
    for (const auto subAuthority : made.sid.subAuthorities) append(made.foreign, subAuthority);
    for (std::size_t at = 0; at < extra; ++at) made.foreign += static_cast<char>(below(256));
  }

  static void append(std::string& bytes, std::uint32_t value) {
    for (unsigned shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift);
  }

  Ace ace() {
    Ace made{static_cast<std::uint8_t>(below(2)),
             static_cast<std::uint8_t>(below(256)),
             static_cast<std::uint32_t>(random_()),
             sid(),
             {}};
    if (below(4) == 0) makeForeign(made);
    return made;
  }

  std::mt19937 random_;
};

class NtAclProperty : public testing::TestWithParam<unsigned> {};

TEST_P(NtAclProperty, ToBytesAndBackIsTheIdentity) {
  Maker maker(GetParam());
  for (int round = 0; round < 500; ++round) {
    const Descriptor descriptor = maker.descriptor();
    const auto value = encode(descriptor);
    ASSERT_TRUE(value) << "seed " << GetParam() << " round " << round;
    ASSERT_EQ(decode(*value), descriptor) << "seed " << GetParam() << " round " << round;
    ASSERT_EQ(encode(*decode(*value)), value);
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, NtAclProperty, testing::Range(1U, 9U));

}  // namespace
}  // namespace paddock::nt_acl
