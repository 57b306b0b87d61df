#include "synchronize-shares/smb_server.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <filesystem>

#include "support/open_descriptors.h"
#include "support/temporary_folder.h"

namespace paddock::synchronizer {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;

// A program in smbcontrol's place.
class SmbServerTest : public ::testing::Test {
 protected:
  std::string program() const { return folder_.path("smbcontrol"); }
  std::string told() const { return readWholeFile(folder_.path("told")); }

  void script(const std::string& lines) const {
    writeWholeFile(program(), "#!/bin/sh\n" + lines + "\n");
    std::filesystem::permissions(program(), std::filesystem::perms(0755));
  }

  TestFolder folder_;
};

TEST_F(SmbServerTest, IsToldToReadItsConfigurationAgain) {
  script("echo \"$@\" >" + folder_.path("told"));
  EXPECT_EQ(tellSmbServer(program()), "");
  EXPECT_EQ(told(), "smbd reload-config\n");
}

TEST_F(SmbServerTest, IsToldToEndTheConnectionsWithAShare) {
  script("printf '%s|' \"$@\" >" + folder_.path("told"));
  EXPECT_EQ(endConnections(program(), "Summer photos"), "");
  EXPECT_EQ(told(), "smbd|close-share|Summer photos|");
}

TEST_F(SmbServerTest, NothingIsWrongWithoutTheProgram) { EXPECT_EQ(tellSmbServer(program()), ""); }

TEST_F(SmbServerTest, NothingIsWrongWhenNoneRuns) {
  script("echo \"Can't find pid for destination 'smbd'\" >&2; exit 1");
  EXPECT_EQ(tellSmbServer(program()), "");
}

TEST_F(SmbServerTest, AnotherFailureIsPassedOn) {
  script("echo 'something else' >&2; exit 3");
  EXPECT_EQ(tellSmbServer(program()),
            "smbd is not told, " + program() + " ended with status 3: something else\n");
}

TEST_F(SmbServerTest, AProgramThatCannotBeStartedIsNamed) {
  writeWholeFile(program(), "");
  EXPECT_THAT(tellSmbServer(program()),
              AllOf(HasSubstr("cannot start " + program()), EndsWith("Permission denied")));
}

TEST_F(SmbServerTest, AProgramThatHangsIsEnded) {
  script("echo $$ >" + folder_.path("told") + "; exec sleep 1000");
  EXPECT_EQ(tellSmbServer(program(), 500ms), "smbd is not told, " + program() + " takes too long");
  EXPECT_EQ(::kill(std::stoi(told()), 0), -1);
}

TEST_F(SmbServerTest, TheProgramEndsWithTheGroupOfItsStarter) {
  script("cut -d' ' -f5 /proc/$$/stat >" + folder_.path("told"));
  EXPECT_EQ(tellSmbServer(program()), "");
  EXPECT_EQ(std::stoi(told()), ::getpgrp());
}

TEST_F(SmbServerTest, AProgramThatClosesItsOutputAndHangsIsEnded) {
  script("exec >&- 2>&-; exec sleep 1000");
  EXPECT_THAT(tellSmbServer(program(), 300ms), EndsWith("takes too long"));
}

TEST_F(SmbServerTest, SomethingThatStaysInTheBackgroundIsNotWaitedFor) {
  script("sleep 1000 & echo $! >" + folder_.path("told"));
  EXPECT_EQ(tellSmbServer(program(), 60s), "");
  ::kill(std::stoi(told()), SIGKILL);
}

TEST_F(SmbServerTest, OfMuchOutputTheBeginningIsKept) {
  script("head -c 1000000 /dev/zero | tr '\\0' x; exit 1");
  EXPECT_LT(tellSmbServer(program()).size(), 5000U);
}

TEST_F(SmbServerTest, NoDescriptorAndNoProcessIsLeft) {
  script("exit 1");
  tellSmbServer(program());
  const auto before = openDescriptors();
  tellSmbServer(program());
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
}

}  // namespace
}  // namespace paddock::synchronizer
