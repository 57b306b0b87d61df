#include "samba/dos_attributes.h"

#include <gtest/gtest.h>

#include <string>

namespace paddock::samba {
namespace {

using namespace std::string_literals;

// What Samba's own library makes, but for the times.
const std::string kOld = "0x21\0\0\1\0\1\0\0\0\x21\0\0\0"s + std::string(36, '\0');
const std::string kVersion3 = "0x21\0\0\3\0\3\0\0\0\1\0\0\0\x21\0\0\0"s + std::string(36, '\0');
const std::string kVersion4 = "\0\0\4\0\4\0\0\0\1\0\0\0\x21\0\0\0"s + std::string(16, '\7');
const std::string kVersion5 = "\0\0\5\0\5\0\0\0\1\0\0\0\x21\0\0\0"s + std::string(8, '\7');

TEST(DosReadOnly, IsReadFromEachVersion) {
  for (const std::string& value : {kOld, kVersion3, kVersion4, kVersion5, "0x21\0"s, "0x1"s}) {
    EXPECT_EQ(dosReadOnlyIn(value), DosReadOnly::yes) << value.size();
    std::string other = value;
    for (char& character : other)
      if (character == '\x21') character = '\x20';
    const bool isBinary = other != value;
    EXPECT_EQ(dosReadOnlyIn(other), isBinary ? DosReadOnly::no : DosReadOnly::yes) << value.size();
  }
  EXPECT_EQ(dosReadOnlyIn("0x20\0"s), DosReadOnly::no);
}

TEST(DosReadOnly, IsNotReadFromWhatIsCutShort) {
  for (const std::string& value : {kOld, kVersion3, kVersion4, kVersion5})
    for (std::size_t length = 6; length < value.size(); ++length)
      EXPECT_EQ(dosReadOnlyIn(value.substr(0, length)), DosReadOnly::no) << length;
}

TEST(DosReadOnly, IsNotThereWhereTheFlagsDoNotSaySo) {
  std::string value = kVersion5;
  value[8] = 2;
  EXPECT_EQ(dosReadOnlyIn(value), DosReadOnly::no);
  EXPECT_EQ(dosReadOnlyIn(""), DosReadOnly::no);
}

TEST(DosReadOnly, IsNotReadFromAnotherVersion) {
  std::string value = kVersion5;
  value[2] = value[4] = 6;
  EXPECT_EQ(dosReadOnlyIn(value), DosReadOnly::no);
  value[2] = 5;
  EXPECT_EQ(dosReadOnlyIn(value), DosReadOnly::no);
}

TEST(DosReadOnly, IsNotKnownOfATextThatIsNoNumber) {
  for (const std::string& value : {"\0"s, "x\0"s, "0x"s, "0x100000000\0"s, "0x2 \0"s, "21\0"s})
    EXPECT_EQ(dosReadOnlyIn(value), DosReadOnly::unknown) << value;
}

}  // namespace
}  // namespace paddock::samba
