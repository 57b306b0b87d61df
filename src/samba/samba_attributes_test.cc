#include "samba/samba_attributes.h"

#include <gtest/gtest.h>

#include <string>

namespace paddock::samba {

namespace {

std::string bytesOf(std::string_view hexadecimal) {
  std::string bytes;
  for (std::size_t at = 0; at < hexadecimal.size(); at += 2)
    bytes += static_cast<char>(std::stoi(std::string(hexadecimal.substr(at, 2)), nullptr, 16));
  return bytes;
}

// What smbd 4.17 stored for a file and for a folder.
constexpr std::string_view kAccess =
    "0200000001000700ffffffff020007000a520000020007000c52000004000000ffffffff080000000a520000"
    "10000700ffffffff20000000ffffffff";
constexpr std::string_view kDefault =
    "0200000001000700ffffffff020007000a520000020007000c52000004000500ffffffff080005000a520000"
    "10000700ffffffff20000000ffffffff";
constexpr std::string_view kOfFile =
    "11a8c61b093b7d443093ac4cf36c8ba58615d5e64b0bab22688b5eea7de2ce0b";
constexpr std::string_view kOfFolder =
    "e78c67cb18497ef31e176f6c1ae1e178ab7b6b5912dbef4859e8cf784daf0506";
constexpr std::string_view kBeforeHash =
    "04000400000002000400020001007ac5314db675a6f2be1ddb5314f660f458d61d7230014bf61a2183753a48377a"
    "0000000000000000000000000000000000000000000000000000000000000000"
    "706f7369785f61636c001cb2381e4a7add01";

TEST(KernelAclHash, IsThatOfSmbd) {
  EXPECT_EQ(kernelAclHashOf({21002, 21002, 0100770, bytesOf(kAccess), {}}), bytesOf(kOfFile));
  EXPECT_EQ(kernelAclHashOf({21002, 21002, 042770, bytesOf(kAccess), bytesOf(kDefault)}),
            bytesOf(kOfFolder));
}

TEST(KernelAclHash, IsAnotherOneAfterEachChange) {
  EXPECT_NE(kernelAclHashOf({21001, 21002, 0100770, bytesOf(kAccess), {}}), bytesOf(kOfFile));
  EXPECT_NE(kernelAclHashOf({21002, 21001, 0100770, bytesOf(kAccess), {}}), bytesOf(kOfFile));
  EXPECT_NE(kernelAclHashOf({21002, 21002, 0100700, bytesOf(kAccess), {}}), bytesOf(kOfFile));
  EXPECT_NE(kernelAclHashOf({21002, 21002, 0100770, {}, {}}), bytesOf(kOfFile));
}

TEST(KernelAclHash, IsFoundInAValueOfVersion4Alone) {
  const std::string value = bytesOf(kBeforeHash) + bytesOf(kOfFile);
  EXPECT_EQ(kernelAclHashIn(value), bytesOf(kOfFile));
  EXPECT_FALSE(kernelAclHashIn(value.substr(0, value.size() - 1)));
  std::string other = value;
  other[0] = other[2] = 3;
  EXPECT_FALSE(kernelAclHashIn(other));
  other = value;
  other[12] = 0;
  EXPECT_FALSE(kernelAclHashIn(other));
  EXPECT_FALSE(kernelAclHashIn(""));
}

std::optional<ListForce> forceUnder(const std::string& value,
                                    const std::optional<std::string>& hash) {
  return listForce(value, [&] { return hash; });
}

TEST(ListForce, MatchingKernelHashPutsListInForce) {
  const std::string value = bytesOf(kBeforeHash) + bytesOf(kOfFile);
  EXPECT_EQ(forceUnder(value, bytesOf(kOfFile)), ListForce::inForce);
  EXPECT_EQ(forceUnder(value, bytesOf(kOfFolder)), ListForce::overridden);
  EXPECT_EQ(forceUnder(value, std::nullopt), ListForce::unknown);
}

TEST(ListForce, OldVersionsWantNoHash) {
  for (const std::string_view version : {"0100010000000200", "0200020000000200"})
    EXPECT_EQ(forceUnder(bytesOf(version), std::nullopt), ListForce::inForce) << version;
}

TEST(ListForce, ZeroHashNeverHoldsAndUnrecognisedIsUnknown) {
  const std::string without = bytesOf("030003000000020004000200");
  const std::string zeros(64, '\0');
  EXPECT_EQ(forceUnder(without + bytesOf("0100") + zeros, std::nullopt), ListForce::neverHeld);
  EXPECT_EQ(forceUnder(without + bytesOf("0100") + zeros.substr(1) + "x", std::nullopt),
            ListForce::unknown);
}

TEST(ListForce, ThereIsNoneOfWhatIsNoList) {
  for (const std::string_view value :
       {"", "0300", "0300030000000200", "0500050000000200", "0300010000000200",
        "03000300000000000000000000000000", "01000002000000000000000000000000"})
    EXPECT_EQ(forceUnder(bytesOf(value), std::nullopt), std::nullopt) << value;
}

TEST(KernelAclHash, ThereIsNoneOfWhatIsNoAcl) {
  for (const std::string_view value :
       {"", "02000000ff", "0300000001000700ffffffff", "0200000003000700ffffffff"})
    EXPECT_FALSE(kernelAclHashOf({0, 0, 0100644, bytesOf(value), {}})) << value;
}

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

TEST(DosReadOnly, IsNoWhereFlagsLackIt) {
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

TEST(DosReadOnly, IsUnknownForNonNumericText) {
  for (const std::string& value : {"\0"s, "x\0"s, "0x"s, "0x100000000\0"s, "0x2 \0"s, "21\0"s})
    EXPECT_EQ(dosReadOnlyIn(value), DosReadOnly::unknown) << value;
}

}  // namespace

}  // namespace paddock::samba
