#include "platform/linux/accounts/password_hash.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <system_error>

namespace paddock {
namespace {

int errorOfHashing(const std::string& password) {
  try {
    hashPassword(password);
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  return 0;
}

TEST(PasswordHashes, MatchesItsPasswordOnly) {
  const std::string hash = hashPassword("correct horse");
  EXPECT_TRUE(passwordMatches("correct horse", hash));
  EXPECT_FALSE(passwordMatches("correct horsf", hash));
  EXPECT_FALSE(passwordMatches("Correct horse", hash));
  EXPECT_FALSE(passwordMatches("", hash));
}

TEST(PasswordHashes, IsSaltedYescryptWithoutPassword) {
  const std::string hash = hashPassword("battery");
  EXPECT_EQ(hash.rfind("$y$", 0), 0U);
  EXPECT_EQ(hash.find("battery"), std::string::npos);
  EXPECT_NE(hash, hashPassword("battery"));
}

TEST(PasswordHashes, OtherCryptMethodsAreRead) {
  EXPECT_TRUE(passwordMatches("Hello world!",
                              "$6$saltstring$svn8UoSVapNtMuq1ukKS4tPQd8iKwSMHWjl/"
                              "O817G3uBnIFNjnQJuesI68u4OTLiBFdcbYEdFCoEOfa"
                              "S35inz1"));
}

TEST(PasswordHashes, NothingMatchesABrokenHash) {
  EXPECT_FALSE(passwordMatches("x", ""));
  EXPECT_FALSE(passwordMatches("x", "*"));
  EXPECT_FALSE(passwordMatches("x", "*0"));
  EXPECT_FALSE(passwordMatches("x", "$y$"));
}

TEST(PasswordHashes, RefusesPasswordsThatCryptCannotTake) {
  EXPECT_EQ(errorOfHashing(""), EINVAL);
  EXPECT_EQ(errorOfHashing(std::string("a\0b", 3)), EINVAL);
  EXPECT_EQ(errorOfHashing(std::string(512, 'x')), EINVAL);
  EXPECT_EQ(errorOfHashing(std::string(511, 'x')), 0);
}

}  // namespace
}  // namespace paddock
