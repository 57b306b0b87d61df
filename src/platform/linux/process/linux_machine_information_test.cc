#include "platform/linux/process/linux_machine_information.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <cerrno>

#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

constexpr const char* kAttribute = "user.paddock.browserinfo";

class BrowserInformationAttribute : public testing::Test {
 protected:
  BrowserInformationAttribute() { writeWholeFile(file(), ""); }
  std::string file() const { return folder_.path("file"); }
  void setAttribute(const std::string& value) const {
    ASSERT_EQ(::setxattr(file().c_str(), kAttribute, value.data(), value.size(), 0), 0);
  }

  TestFolder folder_;
  LinuxBrowserInformation service_;
};

TEST_F(BrowserInformationAttribute, IsKeptVerbatimInExtendedAttribute) {
  BrowserInformation information{};
  information[0] = 'a';
  information[31] = 'z';
  ASSERT_EQ(service_.write(file(), information), 0);
  std::string value(100, '\0');
  const ssize_t size = ::getxattr(file().c_str(), kAttribute, value.data(), value.size());
  ASSERT_EQ(size, 32);
  EXPECT_EQ(value.substr(0, 32), "a" + std::string(30, '\0') + "z");
}

TEST_F(BrowserInformationAttribute, AnotherLengthIsInvalid) {
  for (const std::size_t length : {0U, 1U, 31U, 33U, 1000U}) {
    setAttribute(std::string(length, 'x'));
    BrowserInformation information{7};
    EXPECT_EQ(service_.read(file(), information), EINVAL) << length;
    EXPECT_EQ(information, BrowserInformation{});
  }
}

TEST_F(BrowserInformationAttribute, AReadOnlyVolumeRefusesIt) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    bindMount(folder_.path(), folder_.path());
    ASSERT_EQ(::mount("", folder_.path().c_str(), "", MS_REMOUNT | MS_BIND | MS_RDONLY, ""), 0);
    EXPECT_EQ(service_.write(file(), {}), EROFS);
    BrowserInformation information{};
    EXPECT_EQ(service_.read(file(), information), 0);
  });
}

}  // namespace
}  // namespace paddock
