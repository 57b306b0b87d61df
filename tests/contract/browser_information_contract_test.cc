// What machine_information.h promises of BrowserInformation.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <numeric>

#include "platform/linux/process/linux_machine_information.h"
#include "platform/testing/fake_machine_information.h"
#include "support/temporary_folder.h"

namespace paddock::contract {
namespace {

BrowserInformation counting() {
  BrowserInformation information;
  std::iota(information.begin(), information.end(), std::uint8_t{1});
  return information;
}

class BrowserInformationContract : public ::testing::TestWithParam<bool> {
 protected:
  BrowserInformationContract() {
    if (GetParam()) {
      service_ = std::make_unique<LinuxBrowserInformation>();
    } else {
      service_ = std::make_unique<FakeBrowserInformation>();
    }
    writeWholeFile(folder_.path("file"), "");
  }
  int read(const std::string& name) { return service_->read(folder_.path(name), information_); }
  int write(const std::string& name) { return service_->write(folder_.path(name), counting()); }

  TestFolder folder_;
  std::unique_ptr<BrowserInformationService> service_;
  BrowserInformation information_ = counting();
};

INSTANTIATE_TEST_SUITE_P(BrowserInformation, BrowserInformationContract, ::testing::Bool(),
                         [](const auto& tested) { return tested.param ? "Linux" : "Fake"; });

TEST_P(BrowserInformationContract, FileWithoutInformationReadsZeros) {
  EXPECT_EQ(read("file"), 0);
  EXPECT_EQ(information_, BrowserInformation{});
}

TEST_P(BrowserInformationContract, WhatIsWrittenIsRead) {
  EXPECT_EQ(write("file"), 0);
  EXPECT_EQ(read("file"), 0);
  EXPECT_EQ(information_, counting());
  EXPECT_EQ(service_->write(folder_.path("file"), {}), 0);
  EXPECT_EQ(read("file"), 0);
  EXPECT_EQ(information_, BrowserInformation{});
}

TEST_P(BrowserInformationContract, AFolderHasItToo) {
  std::filesystem::create_directory(folder_.path("folder"));
  EXPECT_EQ(write("folder"), 0);
  EXPECT_EQ(read("folder"), 0);
  EXPECT_EQ(information_, counting());
}

TEST_P(BrowserInformationContract, AMissingFileHasNone) {
  EXPECT_EQ(read("missing"), ENOENT);
  EXPECT_EQ(information_, BrowserInformation{});
  EXPECT_EQ(write("missing"), ENOENT);
}

TEST_P(BrowserInformationContract, ALinkIsNotFollowed) {
  std::filesystem::create_symlink("file", folder_.path("link"));
  EXPECT_EQ(write("link"), EPERM);
  EXPECT_EQ(read("file"), 0);
  EXPECT_EQ(information_, BrowserInformation{});
}

TEST_P(BrowserInformationContract, FifoRefusesInformationWithoutBlocking) {
  ASSERT_EQ(::mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(write("fifo"), EPERM);
}

TEST_P(BrowserInformationContract, APathWithANulIsInvalid) {
  const std::string path = folder_.path("file") + std::string("\0x", 2);
  EXPECT_EQ(service_->read(path, information_), EINVAL);
  EXPECT_EQ(service_->write(path, counting()), EINVAL);
}

}  // namespace
}  // namespace paddock::contract
