#include "platform/linux/process/sha256.h"

#include <gtest/gtest.h>

#include <string>

#include "support/hex_bytes.h"

namespace paddock {
namespace {

std::string digestOf(std::string_view text) {
  const auto digest = sha256(text);
  return {digest.begin(), digest.end()};
}

// The examples that NIST publishes with FIPS 180-4.
TEST(Sha256, DigestsThePublishedExamples) {
  EXPECT_EQ(digestOf("abc"),
            hexBytes("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
  EXPECT_EQ(digestOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            hexBytes("248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"));
  EXPECT_EQ(digestOf(std::string(1000000, 'a')),
            hexBytes("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"));
  EXPECT_EQ(digestOf(""),
            hexBytes("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"));
}

// Where the padding just fits into the last block, and where it takes one more.
TEST(Sha256, DigestsTextsAroundTheEndOfABlock) {
  EXPECT_EQ(digestOf(std::string(55, 'a')),
            hexBytes("9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"));
  EXPECT_EQ(digestOf(std::string(56, 'a')),
            hexBytes("b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"));
  EXPECT_EQ(digestOf(std::string(64, 'a')),
            hexBytes("ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"));
}

}  // namespace
}  // namespace paddock
