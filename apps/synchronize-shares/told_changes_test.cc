#include "synchronize-shares/told_changes.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <system_error>

#include "base/file_descriptor.h"
#include "support/temporary_folder.h"

namespace paddock::synchronizer {
namespace {

class ToldChangesTest : public ::testing::Test {
 protected:
  void fill(const std::string& text) const { writeWholeFile(path(), text); }
  std::string path() const { return folder_.path("lock"); }

  TestFolder folder_;
  FileDescriptor file_{::open(path().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
  ToldChanges changes_{file_.get()};
};

TEST_F(ToldChangesTest, AnEmptyFileHasNoChange) { EXPECT_EQ(changes_.untold(), 0U); }

TEST_F(ToldChangesTest, AChangeIsUntoldUntilItIsTold) {
  changes_.add();
  EXPECT_EQ(changes_.untold(), 1U);
  changes_.told(1);
  EXPECT_EQ(changes_.untold(), 0U);
}

TEST_F(ToldChangesTest, AChangeThatCameWhileAnEarlierOneWasToldStaysUntold) {
  changes_.add();
  changes_.add();
  changes_.told(1);
  EXPECT_EQ(changes_.untold(), 2U);
}

TEST_F(ToldChangesTest, ALaterTellerOfAnEarlierChangeTakesNothingBack) {
  changes_.add();
  changes_.add();
  changes_.told(2);
  changes_.told(1);
  EXPECT_EQ(changes_.untold(), 0U);
}

TEST_F(ToldChangesTest, AnotherOpenFileSeesTheSame) {
  changes_.add();
  const FileDescriptor again(::open(path().c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_EQ(ToldChanges(again.get()).untold(), 1U);
}

TEST_F(ToldChangesTest, WhatCannotBeReadCountsAsUntold) {
  for (const char* text : {"x", "1", "1 1", "1 1\nx", "-1 0\n", "99999999999999999999999 0\n"}) {
    fill(text);
    EXPECT_EQ(changes_.untold(), 1U) << text;
  }
}

TEST_F(ToldChangesTest, AFileThatCannotBeWrittenIsAnError) {
  const FileDescriptor reading(::open(path().c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_THROW(ToldChanges(reading.get()).add(), std::system_error);
}

}  // namespace
}  // namespace paddock::synchronizer
