#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>

#include "privileges/bundle_programs.h"
#include "support/handler_fixture.h"

namespace paddock {
namespace {

constexpr const char* kFirstFile = "/tmp/CopyPrivsTemp.000001";

class PropagationOperations : public HandlerFixture {
 protected:
  // The mask on the command line of the run that the request starts.
  std::string maskOf(Dictionary request) {
    programs.clear();
    request.set("paths", Array{"/srv/a"});
    handler.startPropagateWithRequest(request);
    return programs.detached().empty() ? "none" : programs.detached().front().arguments[4];
  }
  Dictionary start() {
    return handler.startPropagateWithRequest({{"paths", Array{"/srv/a"}}, {"propACL", 1}});
  }
  Dictionary status() {
    return handler.statusCopyPrivsWithRequest(
        {{"copyPrivsPid", 4711}, {"copyPrivsStatusFile", kFirstFile}});
  }
  Dictionary effective(const Dictionary& request, const std::string& output = "142\n") {
    ProgramOutcome outcome;
    outcome.output = output;
    programs.setOutcome(kEffectivePrivsPath, outcome);
    return handler.getEffectivePermsWithRequest(request);
  }
};

TEST_F(PropagationOperations, StartRepliesWithPathAndContextValues) {
  EXPECT_EQ(start(),
            (Dictionary{
                {"path", "/srv/a"}, {"copyPrivsPid", 4711}, {"copyPrivsStatusFile", kFirstFile}}));
  EXPECT_EQ(handler.context().get("copyPrivsActive"), Value(true));
  EXPECT_TRUE(lockIsFree());
}

TEST_F(PropagationOperations, OnlyTheFirstPathIsUsed) {
  handler.startPropagateWithRequest({{"paths", Array{"/srv/b", "/srv/c"}}});
  ASSERT_EQ(programs.detached().size(), 1U);
  EXPECT_EQ(programs.detached().front().arguments[2], "/srv/b");
}

TEST_F(PropagationOperations, EachFlagSelectsItsBit) {
  EXPECT_EQ(maskOf({}), "0");
  EXPECT_EQ(maskOf({{"propOwnerName", 1}}), "1");
  EXPECT_EQ(maskOf({{"propGroupName", 1}}), "2");
  EXPECT_EQ(maskOf({{"propOwnerPerm", 1}}), "4");
  EXPECT_EQ(maskOf({{"propGroupPerm", 1}}), "8");
  EXPECT_EQ(maskOf({{"propWorldPerm", 1}}), "16");
  EXPECT_EQ(maskOf({{"propACL", 1}}), "32");
  EXPECT_EQ(maskOf({{"propOwnerName", 1},
                    {"propGroupName", 1},
                    {"propOwnerPerm", 1},
                    {"propGroupPerm", 1},
                    {"propWorldPerm", 1},
                    {"propACL", 1}}),
            "63");
}

TEST_F(PropagationOperations, OneAloneSelects) {
  for (const Value& one : {Value(1), Value(true), Value("1")}) {
    EXPECT_EQ(maskOf({{"propOwnerName", one}}), "1");
  }
  for (const Value& other : {Value(2), Value(0), Value(-1), Value(false), Value("yes"), Value("2"),
                             Value(Array{1}), Value(Dictionary{{"a", 1}}), Value(Data{{1}})}) {
    EXPECT_EQ(maskOf({{"propOwnerName", other}}), "0");
  }
}

TEST_F(PropagationOperations, FailedStartRepliesWithErrorAlone) {
  programs.setMissing(kCopyPrivsPath);
  EXPECT_EQ(start(), (Dictionary{{"error", "CANNOT_PROPAGATE_PRIVS_ERR"}}));
}

TEST_F(PropagationOperations, WithoutPathsNothingStarts) {
  const Dictionary failure{{"error", "CANNOT_PROPAGATE_PRIVS_ERR"}};
  EXPECT_EQ(handler.startPropagateWithRequest({}), failure);
  EXPECT_EQ(handler.startPropagateWithRequest({{"paths", "/srv/a"}}), failure);
  EXPECT_EQ(handler.startPropagateWithRequest({{"paths", Array{7}}}), failure);
  EXPECT_TRUE(programs.detached().empty());
  const RecordingLogger::Line why{kLogError,
                                  "paddock_sharing: Privileges cannot be pushed down: the request "
                                  "names no folder (\"paths\" is no array, or its first element no "
                                  "text)"};
  EXPECT_EQ(logger.lines(), (std::vector{why, why, why}));
}

TEST_F(PropagationOperations, EmptyPathArrayThrowsAndReleasesLock) {
  EXPECT_THROW(handler.startPropagateWithRequest({{"paths", Array{}}}), std::out_of_range);
  EXPECT_TRUE(lockIsFree());
}

TEST_F(PropagationOperations, TheStatusIsThatOfTheFile) {
  start();
  statusFiles.write(kFirstFile, Dictionary{{"status", "running"}, {"itemsDone", 5}});
  EXPECT_EQ(status(),
            (Dictionary{{"status", Dictionary{{"status", "running"}, {"itemsDone", 5}}}}));
  EXPECT_TRUE(lockIsFree());
}

TEST_F(PropagationOperations, SilentRunHasNoStatus) {
  start();
  EXPECT_EQ(status(), Dictionary{});
}

TEST_F(PropagationOperations, AMissingStatusFileIsTheError) {
  const Dictionary failure{{"error", "COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR"}};
  EXPECT_EQ(status(), failure);
  EXPECT_EQ(handler.statusCopyPrivsWithRequest({}), failure);
}

TEST_F(PropagationOperations, TheInheritedAclIsTheReply) {
  tree.setFolder("/srv/a");
  EXPECT_EQ(handler.fileInheritACLWithRequest({{"path", "/srv/a"}}),
            (Dictionary{{"acl", Array{}}}));
  EXPECT_EQ(handler.fileInheritACLWithRequest({}), (Dictionary{{"acl", Array{}}}));
  EXPECT_TRUE(lockIsFree());
}

TEST_F(PropagationOperations, AnInvalidAclIsTheErrorAlone) {
  tree.setFolder("/srv/a");
  tree.setAcl("/srv/a", {.entries = {}, .undecodable = true});
  EXPECT_EQ(handler.fileInheritACLWithRequest({{"path", "/srv/a"}}),
            (Dictionary{{"error", "INVALID_ACL_ERR"}}));
}

TEST_F(PropagationOperations, EffectivePermissionsAreTheBitmap) {
  EXPECT_EQ(effective({{"path", "/srv/a"}, {"uid", 501}}),
            (Dictionary{{"bitmap", 142}, {"path", "/srv/a"}}));
  EXPECT_EQ(programs.runs().back().arguments,
            (std::vector<std::string>{"-p", "/srv/a", "-u", "501"}));
}

TEST_F(PropagationOperations, AUserIdIsReadAsANumber) {
  const std::vector<std::pair<Value, const char*>> cases = {
      {"502", "502"}, {true, "1"}, {4294967295LL, "4294967295"}, {2147483648LL, "2147483648"}};
  for (const auto& [uid, text] : cases) {
    effective({{"path", "/srv/a"}, {"uid", uid}});
    EXPECT_EQ(programs.runs().back().arguments[3], text);
  }
  effective({{"path", "/srv/a"}});
  EXPECT_EQ(programs.runs().back().arguments[3], "0");
}

TEST_F(PropagationOperations, WhatIsNoUserIdHasNoPermissions) {
  for (const Value& uid :
       {Value(-1), Value(4294967296LL), Value(std::numeric_limits<std::uint64_t>::max()),
        Value("-2"), Value("99999999999999999999"), Value("anna"), Value(""), Value(Array{501}),
        Value(Dictionary{{"uid", 501}}), Value(Data{{1}})}) {
    EXPECT_EQ(effective({{"path", "/srv/a"}, {"uid", uid}}),
              (Dictionary{{"bitmap", 0}, {"path", "/srv/a"}}));
  }
  EXPECT_TRUE(programs.runs().empty());
}

TEST_F(PropagationOperations, FailuresOfEffectivePermissionsAreNotReported) {
  programs.setMissing(kEffectivePrivsPath);
  EXPECT_EQ(effective({{"path", "/srv/a"}, {"uid", 1}}),
            (Dictionary{{"bitmap", 0}, {"path", "/srv/a"}}));
}

TEST_F(PropagationOperations, WithoutAPathThereAreNoPermissions) {
  EXPECT_EQ(effective({{"uid", 1}}), (Dictionary{{"bitmap", 0}}));
  EXPECT_TRUE(programs.runs().empty());
  EXPECT_TRUE(lockIsFree());
}

}  // namespace
}  // namespace paddock
