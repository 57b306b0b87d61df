// Parsing of the output of Samba's testparm, and the resulting states; the programs are Samba's own
// where they are installed. (tests/samba has an smbd that runs.)
#include "paddock_services/smb_service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "paddock/run_program.h"
#include "paddock_services/share_check.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using ::testing::HasSubstr;
using Kind = ProtocolState::Kind;

constexpr const char* kTestparm = "/usr/bin/testparm";

TEST(TestparmOutput, HasTheSharesWithTheirPaths) {
  const auto read = parseTestparm(
      "# Global parameters\n[global]\n\tsmb ports = 4450 139\n\tpath = /no\n\n\n[Hand]\n"
      "\tavailable = No\n\tpath = /srv/hand\n\n\n[a b]\n\tcomment = path = /no\n\tpath = /srv/a = "
      "b\n");
  EXPECT_EQ(read.ports, "4450 139");
  ASSERT_EQ(read.shares.size(), 2U);
  EXPECT_EQ(read.shares[0].name, "Hand");
  EXPECT_EQ(read.shares[0].path, "/srv/hand");
  EXPECT_FALSE(read.shares[0].isAvailable);
  EXPECT_EQ(read.shares[1].path, "/srv/a = b");
  EXPECT_TRUE(read.shares[1].isAvailable);
  EXPECT_EQ(read.find("hAND"), read.shares.data());
  EXPECT_EQ(read.find("global"), nullptr);
  EXPECT_TRUE(parseTestparm("").shares.empty());
  EXPECT_TRUE(parseTestparm("path = /a\n[").shares.empty());
}

// A tree with a smb.conf, which the system's testparm reads; smbd does not run.
class SmbServiceState : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists(kTestparm)) GTEST_SKIP() << "testparm is not installed";
    std::filesystem::create_directories(folder_.path("etc/samba"));
    world_ = {folder_.path(), {}, [this](const std::string& path, const auto& words) {
                asked_.push_back(path);
                const ProgramResult result = askProgram(path, words, std::chrono::seconds(20));
                return ProgramOutcome{result.status, result.output, result.errorOutput,
                                      result.exitStatus};
              }};
    published("[Plans]\n    path = " + plans() + "\n");
  }

  std::string plans() const { return folder_.path("plans"); }
  void published(const std::string& sections) const {
    writeWholeFile(folder_.path("etc/samba/paddock-shares.conf"), sections);
  }
  // Below a [global] that keeps its state in the tree.
  void configure(const std::string& sections) const {
    std::string text = "[global]\n";
    for (const char* key :
         {"private dir", "lock directory", "state directory", "cache directory", "pid directory"})
      text += std::string(key) + " = " + folder_.path() + "\n";
    writeWholeFile(folder_.path("etc/samba/smb.conf"), text + sections);
  }
  std::string include() const {
    return "include = " + folder_.path("etc/samba/paddock-shares.conf") + "\n";
  }
  SharePointNames share(const std::string& name) const {
    return {"plans", plans(), {}, name, {}, false, false};
  }
  ProtocolState stateOf(const std::string& name) {
    SmbService smb(world_);
    return smb.stateOf(share(name));
  }

  TestFolder folder_;
  AskedWorld world_;
  std::vector<std::string> asked_;
};

TEST_F(SmbServiceState, AStoppedSmbdServesNothing) {
  configure(include());
  EXPECT_EQ(stateOf("plans"), ProtocolState::notServed("smbd is stopped", "systemctl start smbd"));
}

TEST_F(SmbServiceState, AFileThatIsNotIncludedIsSaid) {
  configure("");
  const ProtocolState state = stateOf("Plans");
  EXPECT_EQ(state.kind, Kind::notServed);
  EXPECT_THAT(state.reason, HasSubstr("smb.conf does not include " + folder_.path("etc/samba")));
  EXPECT_EQ(state.advice, "add the line: " + include().substr(0, include().size() - 1));
}

TEST_F(SmbServiceState, ManualSectionOfSameNameShadowsShare) {
  configure(include() + "[plans]\npath = /elsewhere\n");
  const ProtocolState state = stateOf("Plans");
  EXPECT_EQ(state.kind, Kind::notServed);
  EXPECT_THAT(state.reason, HasSubstr("has the path /elsewhere"));
}

TEST_F(SmbServiceState, AHandMadeSectionMayMakeItUnavailable) {
  configure(include() + "[Plans]\navailable = no\n");
  EXPECT_EQ(stateOf("Plans"), ProtocolState::notServed("its section has \"available = no\""));
}

TEST_F(SmbServiceState, SkippedShareIsReportedWithReason) {
  configure(include());
  EXPECT_THAT(stateOf("[x]").reason, HasSubstr("its name, \"[x]\", has a bracket"));
  EXPECT_THAT(stateOf("other").reason, HasSubstr("paddock-shares.conf does not have it"));
}

TEST_F(SmbServiceState, AConfigurationThatCannotBeReadIsUnknown) {
  const ProtocolState state = stateOf("Plans");
  EXPECT_EQ(state.kind, Kind::unknown);
  EXPECT_THAT(state.reason, HasSubstr("testparm cannot read"));
}

TEST_F(SmbServiceState, MissingProgramsReturnUnknownInSeparateTree) {
  configure(include());
  world_.ask = [](const auto&, const auto&) { return ProgramOutcome{ENOENT, {}, {}, 0}; };
  EXPECT_EQ(stateOf("Plans"), unknownToTree(world_));
  // It knows what its own file omits.
  EXPECT_THAT(stateOf("other").reason, HasSubstr("paddock-shares.conf does not have it"));
  EXPECT_THAT(stateOf("a/b").reason, HasSubstr("its name, \"a/b\", has a slash"));
  world_.root.clear();
  EXPECT_EQ(stateOf("Plans"),
            ProtocolState::notServed("Samba is not installed", "apt-get install samba"));
}

TEST_F(SmbServiceState, EachProgramIsAskedOnceForAllShares) {
  configure(include());
  SmbService smb(world_);
  for (const char* name : {"Plans", "Plans", "other"}) smb.stateOf(share(name));
  EXPECT_THAT(asked_, ::testing::ElementsAre(kTestparm, "/usr/bin/smbcontrol"));
}

class ShareCheck : public SmbServiceState {
 protected:
  // The reason for which the request is refused; empty when it is not.
  std::string refusal(Dictionary request) {
    request.set("path", plans());
    SmbService smb(world_);
    const Array refusals = refusalsOf(request, others_, smb);
    return refusals.empty() ? "" : *refusals.front().dictionary()->string("reason");
  }
  std::string nameRefusal(const std::string& name, bool mayBeNumbered = false) {
    return refusal({{"nameOverSMB", name}, {"mayBeNumbered", mayBeNumbered}});
  }
  std::string clientRefusal(const std::string& host, const std::string& option) {
    return refusal({{"clients", Array{Dictionary{{"host", host}, {"options", Array{option}}}}}});
  }

  std::vector<SharePointNames> others_{{"p", "/srv/photos", {}, "Photos", {}, false, false}};
};

TEST_F(ShareCheck, NamesThatSambaKeepsForItselfAreRefused) {
  configure(include());
  for (const char* name : {"homes", "GLOBAL", "g l o b a l", "IPC$", "print$"}) {
    EXPECT_THAT(nameRefusal(name), HasSubstr("is one that Samba keeps for itself")) << name;
  }
  EXPECT_EQ(nameRefusal("home"), "");
  EXPECT_EQ(nameRefusal(""), "");
}

TEST_F(ShareCheck, TakenNamesAreRefusedUnlessNumbered) {
  configure(include());
  EXPECT_EQ(nameRefusal("pHOTOS"), "the name over SMB, \"pHOTOS\", is taken by /srv/photos");
  EXPECT_EQ(nameRefusal("pHOTOS", true), "");
}

TEST_F(ShareCheck, NamesOfHandMadeSectionsAreRefused) {
  configure("[Archive]\npath = /mnt/archive\n[same]\npath = " + plans() + "\n" + include());
  EXPECT_THAT(nameRefusal("archive", true),
              ::testing::AllOf(HasSubstr("is taken: the section [Archive] of "),
                               HasSubstr("smb.conf has it, for /mnt/archive")));
  EXPECT_EQ(nameRefusal("same"), "");
  EXPECT_EQ(nameRefusal("Plans"), "");
}

TEST_F(ShareCheck, OptionsThatExportfsDoesNotKnowAreRefused) {
  EXPECT_EQ(clientRefusal("*", "readwrite"),
            "exportfs does not know the option \"readwrite\" of *");
  EXPECT_EQ(clientRefusal("*", "rw"), "");
}

TEST_F(ShareCheck, HostsThatDoNotResolveAreRefused) {
  EXPECT_THAT(clientRefusal("no-such-host.invalid", "rw"),
              HasSubstr("the host no-such-host.invalid does not resolve: "));
  for (const char* host : {"127.0.0.1", "::1", "localhost", "*.invalid", "@net.invalid",
                           "192.0.2.0/24", "*", "host?.invalid", "gss/krb5"}) {
    EXPECT_EQ(clientRefusal(host, "rw"), "") << host;
  }
}

TEST_F(ShareCheck, KeysOfOtherTypesRefuseNothing) {
  configure("");
  for (const Value& value : {Value(7), Value(Array{Value(Array{})}), Value(Dictionary{})}) {
    EXPECT_EQ(refusal({{"nameOverSMB", value}, {"clients", value}, {"mayBeNumbered", value}}), "");
  }
}

}  // namespace
}  // namespace paddock
