#include "wire/base64.h"

#include <gtest/gtest.h>

#include <random>

namespace paddock::wire {
namespace {

std::vector<std::uint8_t> bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

TEST(Base64, EncodesRfcTestVectors) {
  EXPECT_EQ(encodeBase64(bytesOf("")), "");
  EXPECT_EQ(encodeBase64(bytesOf("f")), "Zg==");
  EXPECT_EQ(encodeBase64(bytesOf("fo")), "Zm8=");
  EXPECT_EQ(encodeBase64(bytesOf("foo")), "Zm9v");
  EXPECT_EQ(encodeBase64(bytesOf("foob")), "Zm9vYg==");
  EXPECT_EQ(encodeBase64(bytesOf("fooba")), "Zm9vYmE=");
  EXPECT_EQ(encodeBase64(bytesOf("foobar")), "Zm9vYmFy");
}

TEST(Base64, RoundTripsEveryLengthAndByte) {
  std::mt19937 random(20);
  for (std::size_t length = 0; length < 300; ++length) {
    std::vector<std::uint8_t> bytes(length);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    EXPECT_EQ(decodeBase64(encodeBase64(bytes)), bytes) << length;
  }
}

TEST(Base64, RefusesInvalidText) {
  for (const std::string_view text :
       {"Z", "Zg", "Zg=", "Zm9", "Z===", "====", "Zg==Zg==", "Zg= =", " Zg==", "Zg==\n", "Zm-v",
        "Zm_v", "=Zg=", "Z=g=", "Zm\xC3\xA9"}) {
    EXPECT_FALSE(decodeBase64(text)) << text;
  }
}

TEST(Base64, RefusesNonzeroTrailingBits) {
  EXPECT_TRUE(decodeBase64("Zg=="));
  EXPECT_FALSE(decodeBase64("Zh=="));
  EXPECT_TRUE(decodeBase64("Zm8="));
  EXPECT_FALSE(decodeBase64("Zm9="));
}

}  // namespace
}  // namespace paddock::wire
