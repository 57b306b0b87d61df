#include "keelhouse/access/kernel_acl.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "support/temporary_folder.h"

namespace paddock::keelhouse {
namespace {

using namespace std::string_literals;

const std::string kHeader = "\2\0\0\0"s;
const std::string kOwner = "\x01\0\7\0\xFF\xFF\xFF\xFF"s;
const std::string kUser1000 = "\x02\0\7\0\xE8\3\0\0"s;
const std::string kUser66051 = "\x02\0\4\0\3\2\1\0"s;
const std::string kGroup = "\x04\0\5\0\xFF\xFF\xFF\xFF"s;
const std::string kGroup20 = "\x08\0\1\0\x14\0\0\0"s;
const std::string kMask = "\x10\0\5\0\xFF\xFF\xFF\xFF"s;
const std::string kOther = "\x20\0\0\0\xFF\xFF\xFF\xFF"s;

TEST(KernelAcl, HoldsBitsOfNamedUsersAndGroups) {
  const auto acl =
      parseKernelAcl(kHeader + kOwner + kUser1000 + kUser66051 + kGroup + kGroup20 + kOther);
  ASSERT_TRUE(acl);
  EXPECT_EQ(acl->entries.size(), 3U);
  EXPECT_EQ(acl->bitsOf({PrincipalType::user, 1000}), 7U);
  EXPECT_EQ(acl->bitsOf({PrincipalType::user, 66051}), 4U);
  EXPECT_EQ(acl->bitsOf({PrincipalType::group, 20}), 1U);
  EXPECT_EQ(acl->bitsOf({PrincipalType::group, 1000}), std::nullopt);
}

TEST(KernelAcl, AppliesMaskToBits) {
  const auto acl = parseKernelAcl(kHeader + kOwner + kUser1000 + kGroup + kGroup20 + kMask);
  ASSERT_TRUE(acl);
  EXPECT_EQ(acl->bitsOf({PrincipalType::user, 1000}), 5U);
  EXPECT_EQ(acl->bitsOf({PrincipalType::group, 20}), 1U);
}

TEST(KernelAcl, MayHaveNoNamedEntries) {
  EXPECT_TRUE(parseKernelAcl(kHeader + kOwner + kGroup + kOther)->entries.empty());
  EXPECT_TRUE(parseKernelAcl(kHeader)->entries.empty());
}

TEST(KernelAcl, RejectsMalformedAttribute) {
  const std::string whole = kHeader + kUser1000 + kMask;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const bool endsWithAnEntry = length >= 4 && (length - 4) % 8 == 0;
    EXPECT_EQ(parseKernelAcl(whole.substr(0, length)).has_value(), endsWithAnEntry) << length;
  }
  EXPECT_FALSE(parseKernelAcl("\1\0\0\0"s + kUser1000));
  EXPECT_FALSE(parseKernelAcl("\2\0\0\1"s + kUser1000));
  EXPECT_FALSE(parseKernelAcl(kHeader + "\x03\0\7\0\0\0\0\0"s)) << "an unknown tag";
  EXPECT_FALSE(parseKernelAcl(kHeader + "\x02\0\x08\0\0\0\0\0"s)) << "an unknown permission";
}

TEST(KernelAcl, IsReadFromFolder) {
  const TestFolder folder;
  const std::string value = kHeader + kOwner + kUser1000 + kGroup + kMask + kOther;
  if (::setxattr(folder.path().c_str(), "system.posix_acl_default", value.data(), value.size(),
                 0) != 0) {
    GTEST_SKIP() << "the file system of " << folder.path()
                 << " keeps no POSIX ACLs: " << std::strerror(errno);
  }
  std::filesystem::create_directory_symlink(folder.path(), folder.path("link"));
  const KernelAcls acls = readKernelAcls(folder.path("link"), true);
  EXPECT_EQ(acls.error, "");
  EXPECT_FALSE(acls.access);
  ASSERT_TRUE(acls.defaultAccess);
  EXPECT_EQ(acls.defaultAccess->bitsOf({PrincipalType::user, 1000}), 5U);

  writeWholeFile(folder.path("file"), "");
  const KernelAcls inherited = readKernelAcls(folder.path("file"), false);
  EXPECT_EQ(inherited.error, "");
  ASSERT_TRUE(inherited.access);
  EXPECT_FALSE(inherited.defaultAccess);
}

TEST(KernelAcl, ReportsReasonForFailedRead) {
  const TestFolder folder;
  EXPECT_EQ(readKernelAcls(folder.path("none"), true).error, "No such file or directory");
  EXPECT_EQ(readKernelAcls("/proc/self", true).error, "Operation not supported");
}

TEST(KernelAcl, IsFormattedInLetters) {
  EXPECT_EQ(kernelBitsText(0), "---");
  EXPECT_EQ(kernelBitsText(5), "r-x");
  EXPECT_EQ(kernelBitsText(7), "rwx");
  EXPECT_EQ(kernelBitsText(2), "-w-");
}

}  // namespace
}  // namespace paddock::keelhouse
