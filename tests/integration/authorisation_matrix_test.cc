// Who may call what: every operation and endpoint that the daemon itself lists, with all plug-ins,
// by every kind of caller. What is not named here is an administrator's, also what comes later.
//
// The request's body is no dictionary: whoever may call the operation is told so (400), and nothing
// is changed; whoever may not is refused before it is read (403).

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "integration/other_user.h"
#include "integration/sharing_daemon.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock::testing {
namespace {

constexpr Account kAdministrator{64001, 65534};
constexpr Account kViewer{64002, 65534};
constexpr Account kOther{64003, 65534};
constexpr int kAllowed = 400;
constexpr int kRefused = 403;
constexpr int kWrongMethod = 405;
constexpr const char* kNoDictionary = "[";

// All that were built.
std::vector<std::string> allPlugins() {
  std::vector<std::string> names;
  for (const auto& bundle : std::filesystem::directory_iterator(PADDOCK_BUNDLES)) {
    const std::string name = bundle.path().stem().string();
    if (std::filesystem::exists(bundle.path() / "Contents" / (name + ".so"))) names.push_back(name);
  }
  return names;
}

const std::set<std::string> kViewersOperations = {
    "paddock_access/answer",       "paddock_access/effective",
    "paddock_access/explain",      "paddock_access/who",
    "paddock_denials/getDenied",   "paddock_directory/getRecord",
    "paddock_directory/listNodes", "paddock_directory/listRecords",
    "paddock_files/getList",       "paddock_files/getMode",
    "paddock_nfs/getState",        "paddock_quotas/getUsage",
    "paddock_services/checkShare", "paddock_services/getExports",
    "paddock_services/getServed",  "paddock_sharing/fileInheritACL",
    "paddock_sharing/getDSNodes",  "paddock_sharing/getEffectivePerms",
    "paddock_sharing/getLogPaths", "paddock_sharing/getSharePointList",
    "paddock_sharing/getState",    "paddock_sharing/readSettings",
    "paddock_vsp/getState"};
const std::set<std::string> kAdministratorsEndpoints = {"/v1/audit"};
constexpr const char* kLogEndpoint = "/v1/requests/{request}/log";

constexpr const char* kConfiguration = R"(
[access]
admin_group = "matrix-admin"
view_group = "matrix-view"
[acl]
winbind = false
[accounts]
extrausers = false
[dnssd]
enabled = false
[volumes]
quota_backend = "accounting"
)";

class AuthorisationMatrix : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
    writeWholeFile(folder_.path("passwd"), readWholeFile("/etc/passwd") + line("matrix-a", 64001) +
                                               line("matrix-v", 64002) + line("matrix-o", 64003));
    setMembers("matrix-a", "matrix-v");
  }

  // Calls `body` where the accounts are there, with a daemon that has every plug-in.
  void withDaemon(const std::function<void()>& body) {
    runInOwnMounts([&] {
      ASSERT_NO_FATAL_FAILURE(bindMount(folder_.path("passwd"), "/etc/passwd"));
      ASSERT_NO_FATAL_FAILURE(bindMount(folder_.path("group"), "/etc/group"));
      daemon_.emplace(kConfiguration, plugins_);
      ASSERT_NO_FATAL_FAILURE(listOperations());
      body();
      daemon_.reset();
    });
  }
  void setMembers(const std::string& administrators, const std::string& viewers) const {
    writeWholeFile(folder_.path("group"), groups_ + "matrix-admin:x:64998:" + administrators +
                                              "\nmatrix-view:x:64999:" + viewers + "\n");
  }

  Response get(const std::string& target) const {
    return request(daemon_->tree().socket(), "GET", target);
  }
  int statusFor(const Account& caller, const std::string& text) const {
    return requestAs(caller.user, caller.group, daemon_->tree().socket(), text).status;
  }
  static std::string call(const std::string& operation, const std::string& body) {
    return requestText("POST", "/v1/" + operation, body);
  }
  static int expected(bool allowed) { return allowed ? kAllowed : kRefused; }

  std::vector<std::string> operations_;  // "PLUGIN/OPERATION"
  std::optional<SharingDaemon> daemon_;

 private:
  static std::string line(const std::string& name, uid_t number) {
    return name + ":x:" + std::to_string(number) + ":65534::/nonexistent:/usr/sbin/nologin\n";
  }
  void listOperations() {
    const Dictionary reply = get("/v1/plugins").dictionary();
    ASSERT_NE(reply.array("plugins"), nullptr);
    ASSERT_EQ(reply.array("plugins")->size(), plugins_.size() + kTestPlugins) << daemon_->log();
    for (const Value& plugin : *reply.array("plugins")) {
      for (const Value& operation : *plugin.dictionary()->array("operations")) {
        const std::string& name = *plugin.dictionary()->string("name");
        if (!name.starts_with("test_")) operations_.push_back(name + "/" + *operation.string());
      }
    }
  }

  static constexpr std::size_t kTestPlugins = 2;  // of every test's daemon

  TestFolder folder_;
  const std::vector<std::string> plugins_ = allPlugins();
  const std::string groups_ = readWholeFile("/etc/group");
};

TEST_F(AuthorisationMatrix, EveryOperationIsForThoseItIsMeantFor) {
  withDaemon([this] {
    for (const std::string& operation : operations_) {
      const std::string text = call(operation, kNoDictionary);
      const bool forViewers = kViewersOperations.contains(operation);
      EXPECT_EQ(statusFor({0, 0}, text), kAllowed) << operation;
      EXPECT_EQ(statusFor(kAdministrator, text), kAllowed) << operation;
      EXPECT_EQ(statusFor(kViewer, text), expected(forViewers)) << operation;
      EXPECT_EQ(statusFor(kOther, text), kRefused) << operation;
      // And with a body that could be run.
      EXPECT_EQ(statusFor(kOther, call(operation, "{}")), kRefused) << operation;
      if (!forViewers) {
        EXPECT_EQ(statusFor(kViewer, call(operation, "{}")), kRefused) << operation;
      }
    }
    const std::set<std::string> all(operations_.begin(), operations_.end());
    EXPECT_THAT(all, ::testing::IsSupersetOf(kViewersOperations));
    EXPECT_GT(all.size(), kViewersOperations.size() + 15) << "there are changing operations, too";
  });
}

// Otherwise a viewer would learn whether a password is somebody's.
TEST_F(AuthorisationMatrix, NoReadingOperationTakesViewersCredentials) {
  withDaemon([this] {
    for (const std::string& operation : kViewersOperations) {
      for (const char* body : {R"({"adminUserName":"root","adminPassword":"x"})",
                               R"({"adminPassword":"x"})", R"({"adminUserName":7})"}) {
        EXPECT_EQ(statusFor(kViewer, call(operation, body)), kRefused) << operation << body;
        EXPECT_EQ(statusFor(kOther, call(operation, body)), kRefused) << operation << body;
      }
    }
  });
}

TEST_F(AuthorisationMatrix, MembersRemovedWhileConnectedAreRefusedEverything) {
  withDaemon([this] {
    for (const std::string& operation : operations_) {
      const std::string text = call(operation, kNoDictionary);
      setMembers("matrix-a", "matrix-v");
      const OtherUser administrator(kAdministrator, daemon_->tree().socket());
      const OtherUser viewer(kViewer, daemon_->tree().socket());
      EXPECT_EQ(administrator.ask(text), kAllowed) << operation;
      const bool forViewers = kViewersOperations.contains(operation);
      if (forViewers) {
        EXPECT_EQ(viewer.ask(text), kAllowed) << operation;
      }
      // An administrator who is a viewer from now on, and a viewer who is nobody.
      setMembers("", "matrix-a");
      EXPECT_EQ(administrator.ask(text), expected(forViewers)) << operation;
      EXPECT_EQ(viewer.ask(text), kRefused) << operation;
      if (!forViewers) continue;
      setMembers("", "");
      EXPECT_EQ(administrator.ask(text), kRefused) << operation;
    }
  });
}

TEST_F(AuthorisationMatrix, EveryEndpointIsForThoseItIsMeantFor) {
  withDaemon([this] {
    const Response health = get("/v1/health");
    const Dictionary document = get("/v1/openapi.json").dictionary();
    ASSERT_NE(document.dictionary("paths"), nullptr);
    std::size_t endpoints = 0;
    for (const auto& [path, methods] : *document.dictionary("paths")) {
      if (!methods.dictionary()->contains("get") || path == kLogEndpoint) continue;
      ++endpoints;
      // Rights come before the method.
      const std::string text = requestText("DELETE", path);
      const bool forViewers = !kAdministratorsEndpoints.contains(path);
      EXPECT_EQ(statusFor({0, 0}, text), kWrongMethod) << path;
      EXPECT_EQ(statusFor(kAdministrator, text), kWrongMethod) << path;
      EXPECT_EQ(statusFor(kViewer, text), forViewers ? kWrongMethod : kRefused) << path;
      EXPECT_EQ(statusFor(kOther, text), kRefused) << path;
      const OtherUser removed(kViewer, daemon_->tree().socket());
      EXPECT_EQ(removed.ask(text), forViewers ? kWrongMethod : kRefused) << path;
      setMembers("matrix-a", "");
      EXPECT_EQ(removed.ask(text), kRefused) << path;
      setMembers("matrix-a", "matrix-v");
    }
    EXPECT_GE(endpoints, 4U);
    const std::string log =
        requestText("GET", "/v1/requests/" + health.header("x-request-id") + "/log");
    EXPECT_EQ(statusFor({0, 0}, log), 200) << "it is its own";
    EXPECT_EQ(statusFor(kAdministrator, log), 200);
    EXPECT_EQ(statusFor(kViewer, log), kRefused);
    EXPECT_EQ(statusFor(kOther, log), kRefused);
  });
}

}  // namespace
}  // namespace paddock::testing
