// Every call of the directory fails in turn, under everything that the module does with a node of a
// directory server.
#include <set>

#include "ldap/ldap_fixture.h"
#include "platform/search_node.h"
#include "platform/services.h"
#include "platform/testing/fake_machine_information.h"
#include "platform/testing/fault_plan.h"
#include "platform/testing/recording_host_services.h"
#include "platform/testing/service_doubles.h"
#include "privileges/principal_names.h"
#include "store/directory_nodes.h"
#include "store/share_point_automount.h"

namespace paddock {
namespace {

using ::testing::AnyOf;
using ::testing::IsEmpty;

constexpr const char* kNode = "/LDAP/contract";
constexpr const char* kMount = "server.example:/srv/a";

class OneNode final : public DirectoryService {
 public:
  explicit OneNode(const LdapOptions& options)
      : nodes_(std::make_shared<const NodeList>(
            NodeList{{options.path(), [server = std::make_shared<LdapServer>(options)] {
                        return makeLdapNode(server);
                      }}})) {}
  std::unique_ptr<DirectorySession> openLocal() override { return makeSession(nodes_); }

 private:
  std::shared_ptr<const NodeList> nodes_;
};

class LdapNodeFaults : public LdapTest, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    LdapTest::SetUp();
    if (IsSkipped()) return;
    slapd().addPerson("anna", "anna's", true);
    LdapOptions each = options();
    each.keeping = std::chrono::milliseconds(0);
    directory_ = std::make_unique<OneNode>(each);
    services_.directory = directory_.get();
    services_.hostName = &host_;
    services_.logger = &logger_;
  }

  // A failed operation: what it raised, or its status.
  struct Outcome {
    Status status = 0;
    Status raised = 0;
    bool hasFailed = false;
    std::string call;
  };

  template <typename Work>
  Outcome run(FaultPlan& plan, Work&& work) {
    const ForwardingServices faulty(services_, plan);
    const ServicesGuard guard(faulty.services());
    Outcome outcome;
    outcome.raised = raised([&] { outcome.status = work(); });
    outcome.hasFailed = plan.fired();
    outcome.call = plan.failedCall();
    return outcome;
  }
  template <typename Work>
  Outcome runUntouched(Work&& work) {
    FaultPlan none;
    return run(none, work);
  }

  // Runs `work` with every call failing in turn; `check` verifies the postconditions of each run.
  template <typename Prepare, typename Work, typename Check>
  std::set<std::string> failEveryCall(Prepare&& prepare, Work&& work, Check&& check) {
    std::set<std::string> failed;
    for (std::size_t number = 1; number < 100 && !HasFailure(); ++number) {
      prepare();
      FaultPlan plan(number);
      plan.setError(EBUSY);
      if (GetParam()) plan.keepFailing();
      const Outcome outcome = run(plan, work);
      SCOPED_TRACE(outcome.call + ", call " + std::to_string(number));
      check(outcome);
      if (!outcome.hasFailed) return failed;
      failed.insert(outcome.call);
    }
    ADD_FAILURE() << "work that does not end";
    return failed;
  }

  std::vector<std::string> mounts() { return allNames(*node(), kMounts); }
  Array optionsOfMount() {
    return node()->findRecord(kMount, kMounts)->getAttribute(schema::kVfsOpts);
  }
  void removeMounts() {
    for (const std::string& name : mounts()) node()->findRecord(name, kMounts)->removeRecord();
  }

  static Status setMount() {
    return set_automount_record("/srv/a", kNode, "/Network/Servers/", "0", "anna", "anna's", "A");
  }
  static Status deleteMount() { return delete_automount_record("/srv/a", kNode, "anna", "anna's"); }

 private:
  std::unique_ptr<OneNode> directory_;
  FakeHostName host_;
  RecordingLogger logger_;
  Services services_;
};
INSTANTIATE_TEST_SUITE_P(Ldap, LdapNodeFaults, ::testing::Bool(), [](const auto& each) {
  return std::string(each.param ? "FromThenOn" : "Once");
});

TEST_P(LdapNodeFaults, RewritingCompletesMountRecord) {
  const Array complete{"net", "url==vsp://;AUTH=NO%20USER%20AUTHENT@server.example/A"};
  const auto failed = failEveryCall([this] { removeMounts(); }, setMount,
                                    [&](const Outcome& outcome) {
                                      EXPECT_EQ(outcome.status, 0);
                                      // What the directory raises reaches the caller, but from the
                                      // search and the creation.
                                      EXPECT_THAT(outcome.raised, AnyOf(0, EBUSY));
                                      EXPECT_LE(mounts().size(), 1U);
                                      EXPECT_EQ(runUntouched(setMount).raised, 0);
                                      EXPECT_EQ(mounts(), std::vector<std::string>{kMount});
                                      EXPECT_EQ(optionsOfMount(), complete);
                                    });
  for (const char* call : {"directory.openLocal", "session.findNode", "node.authenticateName",
                           "node.findRecordsOfTypes", "node.newRecord", "record.setAttribute"})
    EXPECT_EQ(failed.count(call), 1U) << call;
}

TEST_P(LdapNodeFaults, AMountRecordGoesOrStaysWhole) {
  Array complete;
  const auto failed = failEveryCall(
      [&] {
        runUntouched(setMount);
        complete = optionsOfMount();
      },
      deleteMount,
      [&](const Outcome& outcome) {
        EXPECT_EQ(outcome.raised, 0);
        if (mounts().empty()) {
          EXPECT_EQ(outcome.status, 0);
        } else {
          EXPECT_EQ(optionsOfMount(), complete);
        }
        EXPECT_EQ(runUntouched(deleteMount).status, 0);
        EXPECT_THAT(mounts(), IsEmpty());
      });
  EXPECT_EQ(failed.count("record.removeRecord"), 1U);
}

TEST_P(LdapNodeFaults, AdministratorTrialReturnsStatusOfFailedCall) {
  bool canAuth = true;
  const auto trial = [&] { return auth_ds_node(kNode, "anna", "anna's", canAuth); };
  const auto failed =
      failEveryCall([this] { removeMounts(); }, trial,
                    [&](const Outcome& outcome) {
                      const bool isUntouched = !outcome.hasFailed;
                      EXPECT_EQ(canAuth, isUntouched);
                      EXPECT_EQ(outcome.status + outcome.raised, isUntouched ? 0 : EBUSY);
                      // Only what the trial could not remove again.
                      if (outcome.call == "record.removeRecord") {
                        EXPECT_EQ(mounts(), std::vector<std::string>{"verifyAuthTempName"});
                      } else {
                        EXPECT_THAT(mounts(), IsEmpty());
                      }
                    });
  EXPECT_EQ(failed.count("node.newRecord"), 1U);
}

TEST_P(LdapNodeFaults, UnreadableNodeIsNotListed) {
  Array nodes;
  failEveryCall([] {}, [&] { return get_ds_nodes(nodes); },
                [&](const Outcome& outcome) {
                  EXPECT_EQ(outcome.status, 0);
                  EXPECT_EQ(outcome.raised, 0);
                  EXPECT_EQ(nodes, outcome.hasFailed ? Array{} : Array{kNode});
                });
}

TEST_P(LdapNodeFaults, NameLookupSucceedsOrRaisesError) {
  slapd().add(
      "dn: uid=bert,ou=people,dc=example\nobjectClass: inetOrgPerson\n"
      "objectClass: posixAccount\nuid: bert\ncn: Bert Blum\nsn: x\nuidNumber: 2002\n"
      "gidNumber: 1\nhomeDirectory: /\n");
  std::optional<std::string> name;
  failEveryCall([&] { name.reset(); },
                [&] {
                  name = get_name_for_id("2002", schema::kUsers);
                  return 0;
                },
                [&](const Outcome& outcome) {
                  EXPECT_EQ(outcome.raised, outcome.hasFailed ? EBUSY : 0);
                  EXPECT_EQ(name.has_value(), !outcome.hasFailed);
                });
  EXPECT_EQ(name, "Bert Blum");
}

}  // namespace
}  // namespace paddock
