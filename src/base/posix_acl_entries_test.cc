#include "base/posix_acl_entries.h"

#include <gmock/gmock.h>

namespace paddock::posix_acl {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;
using namespace std::string_literals;  // NOLINT(google-build-using-namespace)

const std::string kVersion2 = "\x02\0\0\0"s;
const std::string kOwnerRwx = "\x01\0\x07\0\xFF\xFF\xFF\xFF"s;
const std::string kUser66051R = "\x02\0\x04\0\x03\x02\x01\0"s;
const std::string kMaskNone = "\x10\0\0\0\xFF\xFF\xFF\xFF"s;

TEST(PosixAclEntries, ReadInOrderAsTheyStand) {
  EXPECT_THAT(readEntries(kVersion2 + kMaskNone + kUser66051R + kOwnerRwx + kOwnerRwx),
              Optional(ElementsAre(Entry{Tag::mask, 0, kNoId}, Entry{Tag::user, 4, 66051},
                                   Entry{Tag::owner, 7, kNoId}, Entry{Tag::owner, 7, kNoId})));
  EXPECT_THAT(readEntries(kVersion2), Optional(IsEmpty()));
}

TEST(PosixAclEntries, RoundTripByteForByte) {
  const std::string value = kVersion2 + kOwnerRwx + kUser66051R + kMaskNone;
  EXPECT_EQ(writeEntries(readEntries(value).value()), value);
  EXPECT_EQ(writeEntries({}), kVersion2);
}

TEST(PosixAclEntries, EveryPartOfAnEntryIsRefused) {
  const std::string value = kVersion2 + kOwnerRwx + kMaskNone;
  for (std::size_t size = 0; size < value.size(); ++size)
    EXPECT_EQ(readEntries(value.substr(0, size)).has_value(), size >= 4 && (size - 4) % 8 == 0)
        << size;
}

TEST(PosixAclEntries, OtherVersionsAreRefused) {
  EXPECT_FALSE(readEntries("\x01\0\0\0"s + kOwnerRwx));
  EXPECT_FALSE(readEntries("\x02\0\0\x01"s + kOwnerRwx));
}

TEST(PosixAclEntries, OnlyTheSixTagsAreKnown) {
  for (unsigned tag = 0; tag <= 0xFF; ++tag) {
    const bool isKnown = tag == 1 || tag == 2 || tag == 4 || tag == 8 || tag == 16 || tag == 32;
    const std::string entry = std::string(1, static_cast<char>(tag)) + "\0\x07\0\0\0\0\0"s;
    EXPECT_EQ(readEntries(kVersion2 + entry).has_value(), isKnown) << tag;
  }
  EXPECT_FALSE(readEntries(kVersion2 + "\x01\x01\x07\0\0\0\0\0"s));
}

TEST(PosixAclEntries, OnlyThreeBitsAreKnown) {
  EXPECT_FALSE(readEntries(kVersion2 + "\x02\0\x08\0\0\0\0\0"s));
  EXPECT_FALSE(readEntries(kVersion2 + "\x02\0\x07\x01\0\0\0\0"s));
}

}  // namespace
}  // namespace paddock::posix_acl
