// Who may change a directory server, as the module finds out.
#include <sys/stat.h>

#include <chrono>
#include <set>
#include <sstream>
#include <thread>

#include "ldap/ldap_fixture.h"
#include "platform/search_node.h"
#include "platform/services.h"
#include "platform/testing/recording_host_services.h"
#include "store/directory_nodes.h"
#include "support/run_to_end.h"

namespace paddock {
namespace {

using ::testing::IsEmpty;

// A service of these nodes, installed for the module's workers.
class InstalledNodes final : public DirectoryService {
 public:
  explicit InstalledNodes(const std::vector<LdapOptions>& all) {
    NodeList nodes;
    for (const LdapOptions& one : all)
      nodes.push_back({one.path(), [server = std::make_shared<LdapServer>(one)] {
                         return makeLdapNode(server);
                       }});
    nodes_ = std::make_shared<const NodeList>(std::move(nodes));
    Services services;
    services.directory = this;
    services.logger = &logger_;
    guard_ = std::make_unique<ServicesGuard>(services);
  }
  std::unique_ptr<DirectorySession> openLocal() override { return makeSession(nodes_); }

 private:
  std::shared_ptr<const NodeList> nodes_;
  RecordingLogger logger_;
  std::unique_ptr<ServicesGuard> guard_;
};

std::string readOnly(const DirectoryNode& node) {
  return node.getAttributeFirstValue(schema::kReadOnlyNode).value();
}
std::string readOnly(const LdapOptions& options) { return readOnly(*nodeWith(options)); }

std::string basis(const DirectoryNode& node) {
  return node.getAttributeFirstValue(kWriteBasis).value();
}

class LdapWriteRights : public LdapTest {
 protected:
  void SetUp() override {
    LdapTest::SetUp();
    if (IsSkipped()) return;
    slapd().addPerson("writer", "writer's", true);
    slapd().addPerson("reader", "reader's", false);
  }
  LdapOptions as(const std::string& dn, const std::string& password) {
    LdapOptions other = options();
    other.bindDn = dn;
    other.passwordFile = slapd().folder().path("another password");
    writeWholeFile(other.passwordFile, password);
    EXPECT_EQ(::chmod(other.passwordFile.c_str(), 0600), 0);
    return other;
  }
  LdapOptions asReader() { return as("uid=reader,ou=people,dc=example", "reader's"); }
  // The lines of every entry, in no particular order.
  std::multiset<std::string> everything() {
    std::istringstream text(slapd().search({"-b", SlapdServer::kBase, "*", "+"}));
    std::multiset<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.insert(line);
    return lines;
  }
};

TEST_F(LdapWriteRights, ANodeIsWritableAsConfigured) {
  const auto before = everything();
  LdapOptions nobody = options();
  nobody.bindDn.clear();
  EXPECT_EQ(readOnly(options()), "ReadWrite") << "with an account";
  EXPECT_EQ(readOnly(nobody), "ReadOnly") << "without one";
  LdapOptions asked = options();
  asked.writable = false;
  nobody.writable = true;
  EXPECT_EQ(readOnly(asked), "ReadOnly");
  EXPECT_EQ(readOnly(nobody), "ReadWrite");
  EXPECT_EQ(basis(*nodeWith(nobody)), "configured");
  EXPECT_EQ(everything(), before);
}

TEST_F(LdapWriteRights, AcceptedOrRefusedChangeUpdatesWritability) {
  const auto server = std::make_shared<LdapServer>(asReader());
  EXPECT_EQ(readOnly(*makeLdapNode(server)), "ReadWrite");
  EXPECT_EQ(raised([&] { makeLdapNode(server)->newRecord("a", kShares); }), EACCES);
  EXPECT_EQ(readOnly(*makeLdapNode(server)), "ReadOnly") << "of a later session, too";
  EXPECT_EQ(basis(*makeLdapNode(server)), "refused");
  slapd().modify(
      "dn: uid=reader,ou=people,dc=example\nchangetype: modify\nadd: employeeType\n"
      "employeeType: writer\n");
  EXPECT_EQ(raised([&] { makeLdapNode(server)->newRecord("a", kShares)->removeRecord(); }), 0);
  EXPECT_EQ(readOnly(*makeLdapNode(server)), "ReadWrite");
  EXPECT_EQ(basis(*makeLdapNode(server)), "accepted");
}

TEST_F(LdapWriteRights, AuthenticatedUsersChangeShowsNodeWritable) {
  LdapOptions nobody = options();
  nobody.bindDn.clear();
  const auto server = std::make_shared<LdapServer>(nobody);
  EXPECT_EQ(raised([&] { makeLdapNode(server)->newRecord("a", kShares); }), EACCES);
  EXPECT_EQ(basis(*makeLdapNode(server)), "configured") << "somebody only has to authenticate";
  const auto node = makeLdapNode(server);
  ASSERT_EQ(node->authenticateName("writer", "writer's", false), 0);
  EXPECT_EQ(raised([&] { node->newRecord("a", kShares); }), 0);
  EXPECT_EQ(readOnly(*makeLdapNode(server)), "ReadWrite");
}

TEST_F(LdapWriteRights, RefusalAppliesToRefusedUserAlone) {
  const auto server = std::make_shared<LdapServer>(options());
  const auto node = makeLdapNode(server);
  ASSERT_EQ(node->authenticateName("reader", "reader's", false), 0);
  EXPECT_EQ(readOnly(*node), "ReadWrite");
  EXPECT_EQ(raised([&] { node->newRecord("a", kShares); }), EACCES);
  EXPECT_EQ(readOnly(*node), "ReadOnly");
  EXPECT_EQ(readOnly(*makeLdapNode(server)), "ReadWrite");
  ASSERT_EQ(node->authenticateName("writer", "writer's", false), 0);
  EXPECT_EQ(readOnly(*node), "ReadWrite") << "another user is not known yet";
}

TEST_F(LdapWriteRights, AnAdministratorWhoMayWriteCan) {
  const InstalledNodes nodes({options()});
  bool canAuth = false;
  EXPECT_EQ(auth_ds_node("/LDAP/contract", "writer", "writer's", canAuth), 0);
  EXPECT_TRUE(canAuth);
  EXPECT_THAT(allNames(*nodeWith(options()), kMounts), IsEmpty());
}

TEST_F(LdapWriteRights, ReadOnlyAdministratorFailsWithStatus) {
  const InstalledNodes nodes({options()});
  bool canAuth = true;
  EXPECT_EQ(auth_ds_node("/LDAP/contract", "reader", "reader's", canAuth), EACCES);
  EXPECT_FALSE(canAuth);
  for (const char* password : {"wrong", ""}) {
    canAuth = true;
    EXPECT_EQ(auth_ds_node("/LDAP/contract", "writer", password, canAuth), EACCES);
    EXPECT_FALSE(canAuth);
  }
}

TEST_F(LdapWriteRights, OnlyNodesThatCanBeWrittenAreListed) {
  LdapOptions reader = asReader();
  reader.name = "reader";
  reader.writable = false;
  LdapOptions absent = options();
  absent.name = "absent";
  absent.uri = "ldapi://%2Fnowhere";
  const InstalledNodes nodes({reader, absent, options()});
  Array paths;
  EXPECT_EQ(get_ds_nodes(paths), 0);
  EXPECT_EQ(paths, Array{"/LDAP/contract"});
}

class LdapReadOnlyDatabase : public LdapTest {
 protected:
  SlapdOptions slapdOptions() override {
    return {.database = "restrict write\n", .populate = false};
  }
};

TEST_F(LdapReadOnlyDatabase, IsReadOnlyAfterRefusingChange) {
  LdapOptions root = options();
  root.bindDn = SlapdServer::kRoot;
  writeWholeFile(root.passwordFile, SlapdServer::kRootPassword);
  // The container of the records cannot be added while it runs.
  slapd().stop();
  const std::string entries = slapd().folder().path("entries");
  writeWholeFile(entries,
                 "dn: dc=example\nobjectClass: domain\ndc: example\n\ndn: ou=paddock,dc=example\n"
                 "objectClass: organizationalUnit\nou: paddock\n");
  const EndedProgram added = runProgram(
      {"/usr/sbin/slapadd", "-f", slapd().folder().path("slapd.conf"), "-l", entries}, "");
  ASSERT_EQ(added.status, 0) << added.error;
  slapd().start();
  const auto server = std::make_shared<LdapServer>(root);
  EXPECT_EQ(raised([&] { makeLdapNode(server)->newRecord("a", kShares); }), EACCES);
  EXPECT_EQ(basis(*makeLdapNode(server)), "refused");
}

// --- What lifts a refusal

class LdapLiftedRefusal : public LdapTest {
 protected:
  // One that does not take the account's changes, as long as the file has this line.
  SlapdOptions slapdOptions() override {
    return {.database = "restrict write\n", .populate = false};
  }

  void SetUp() override {
    LdapTest::SetUp();
    if (IsSkipped()) return;
    slapd().stop();
    const std::string entries = slapd().folder().path("entries");
    writeWholeFile(entries,
                   "dn: dc=example\nobjectClass: domain\ndc: example\n\n"
                   "dn: ou=paddock,dc=example\nobjectClass: organizationalUnit\nou: paddock\n");
    const EndedProgram added = runProgram({"/usr/sbin/slapadd", "-f", file(), "-l", entries}, "");
    ASSERT_EQ(added.status, 0) << added.error;
    slapd().start();
    options_ = options();
    options_.bindDn = SlapdServer::kRoot;
    writeWholeFile(options_.passwordFile, SlapdServer::kRootPassword);
  }
  std::string file() { return slapd().folder().path("slapd.conf"); }
  // Starts it again without the line.
  void startWritable() {
    slapd().stop();
    std::string text = readWholeFile(file());
    const std::string line = "restrict write\n";
    ASSERT_NE(text.find(line), std::string::npos);
    text.erase(text.find(line), line.size());
    writeWholeFile(file(), text);
    slapd().start();
  }

  LdapOptions options_;
};

TEST_F(LdapLiftedRefusal, RestartedServerIsQueriedAgain) {
  const auto server = std::make_shared<LdapServer>(options_);
  EXPECT_EQ(raised([&] { makeLdapNode(server)->newRecord("a", kShares); }), EACCES);
  EXPECT_EQ(readOnly(*makeLdapNode(server)), "ReadOnly");
  startWritable();
  EXPECT_EQ(readOnly(*makeLdapNode(server)), "ReadWrite");
  EXPECT_EQ(basis(*makeLdapNode(server)), "configured");
  EXPECT_EQ(raised([&] { makeLdapNode(server)->newRecord("a", kShares); }), 0);
  EXPECT_EQ(basis(*makeLdapNode(server)), "accepted");
}

TEST_F(LdapLiftedRefusal, ASuccessThatFollowsLiftsIt) {
  const auto server = std::make_shared<LdapServer>(options_);
  const auto node = makeLdapNode(server);
  EXPECT_EQ(raised([&] { node->newRecord("a", kShares); }), EACCES);
  startWritable();
  EXPECT_EQ(raised([&] { node->newRecord("a", kShares); }), 0);
  EXPECT_EQ(readOnly(*node), "ReadWrite");
  EXPECT_EQ(readOnly(*makeLdapNode(server)), "ReadWrite");
}

TEST_F(LdapLiftedRefusal, ItIsOverAfterAWhile) {
  options_.refusal = std::chrono::milliseconds(0);
  const auto server = std::make_shared<LdapServer>(options_);
  EXPECT_EQ(raised([&] { makeLdapNode(server)->newRecord("a", kShares); }), EACCES);
  EXPECT_EQ(readOnly(*makeLdapNode(server)), "ReadWrite");
  EXPECT_EQ(basis(*makeLdapNode(server)), "configured");
}

// --- A replica

class LdapReplicas : public LdapTest {
 protected:
  void SetUp() override {
    LdapTest::SetUp();
    if (IsSkipped()) return;
    SlapdOptions replica;
    replica.populate = false;
    replica.global = "moduleload syncprov.so\n";
    replica.database = "syncrepl rid=1 provider=" + slapd().ldapiUri() +
                       " type=refreshAndPersist retry=\"1 +\" searchbase=dc=example"
                       " bindmethod=simple binddn=\"cn=root,dc=example\" credentials=\"root's\"\n"
                       "updateref ldap://provider.example\n";
    replica_ = std::make_unique<SlapdServer>(replica);
    ASSERT_TRUE(comes([&] { return hasService(); }));
  }
  SlapdOptions slapdOptions() override {
    return {.global = "moduleload syncprov.so\n", .database = "overlay syncprov\n"};
  }
  SlapdServer& replica() { return *replica_; }

  bool hasService() {
    try {
      return !replica().search({"-b", SlapdServer::kService, "-s", "base", "dn"}).empty();
    } catch (const std::runtime_error&) {
      return false;
    }
  }

  template <typename Condition>
  static bool comes(Condition&& condition) {
    constexpr int kTries = 600;
    for (int i = 0; i < kTries; ++i) {
      if (condition()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
  }

 private:
  std::unique_ptr<SlapdServer> replica_;
};

TEST_F(LdapReplicas, RecordWrittenOnOneIsFoundOnOther) {
  const auto reading = nodeWith(replica().nodeOptions());
  const auto record = node()->newRecord("fileserver:/a", kMounts);
  record->setAttribute("dsAttrTypeStandard:VFSOpts", Array{"net", "b", "a"});
  const auto found = [&] { return reading->findRecord("FILESERVER:/a", kMounts); };
  const auto hasOptions = [&] {
    const auto there = found();
    return there && there->getAttribute("dsAttrTypeStandard:VFSOpts") == (Array{"net", "b", "a"});
  };
  EXPECT_TRUE(comes(hasOptions));
  EXPECT_EQ(found()->getAllAttributesAndValues(), record->getAllAttributesAndValues());
  record->removeRecord();
  EXPECT_TRUE(comes([&] { return found() == nullptr; }));
}

TEST_F(LdapReplicas, ReplicaIsReadOnlyAfterRefusingChange) {
  const auto writing = nodeWith(replica().nodeOptions());
  EXPECT_EQ(readOnly(*writing), "ReadWrite");
  EXPECT_EQ(raised([&] { writing->newRecord("a", kMounts); }), EACCES);
  EXPECT_EQ(readOnly(*writing), "ReadOnly");
  slapd().addPerson("writer", "writer's", true);
  ASSERT_TRUE(comes([&] { return writing->authenticateName("writer", "writer's", true) == 0; }));
  const InstalledNodes nodes({replica().nodeOptions()});
  bool canAuth = true;
  EXPECT_EQ(auth_ds_node("/LDAP/contract", "writer", "writer's", canAuth), EACCES);
  EXPECT_FALSE(canAuth);
}

}  // namespace
}  // namespace paddock
