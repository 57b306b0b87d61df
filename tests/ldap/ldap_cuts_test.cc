// The connection breaks, or the server dies, at each message of each change.
#include "ldap/ldap_fixture.h"

namespace paddock {
namespace {

using ::testing::AnyOf;
using Cut = CuttingProxy::Cut;

struct Operation {
  const char* name;
  void (*prepare)(DirectoryNode& node);
  void (*run)(DirectoryNode& node);
  bool (*isDone)(DirectoryNode& node);
  bool (*isUndone)(DirectoryNode& node);
};

std::string valueOf(DirectoryNode& node, const std::string& name, const std::string& attribute) {
  const auto record = node.findRecord(name, kShares);
  return record ? record->getAttributeFirstValue(attribute).value_or("") : "no record";
}

const Operation kOperations[] = {
    {"Create", [](DirectoryNode&) {}, [](DirectoryNode& node) { node.newRecord("Docs", kShares); },
     [](DirectoryNode& node) { return allNames(node) == std::vector<std::string>{"Docs"}; },
     [](DirectoryNode& node) { return allNames(node).empty(); }},
    {"Change", [](DirectoryNode& node) { node.newRecord("Docs", kShares)->setAttribute("a", "1"); },
     [](DirectoryNode& node) {
       node.findRecord("Docs", kShares)
           ->setAttributesAndValues({{"a", "2"}, {"b", Array{"x", "y"}}});
     },
     [](DirectoryNode& node) {
       return valueOf(node, "Docs", "a") == "2" && valueOf(node, "Docs", "b") == "x";
     },
     [](DirectoryNode& node) {
       return valueOf(node, "Docs", "a") == "1" && valueOf(node, "Docs", "b").empty();
     }},
    {"Rename", [](DirectoryNode& node) { node.newRecord("Docs", kShares)->setAttribute("a", "1"); },
     [](DirectoryNode& node) {
       node.findRecord("Docs", kShares)
           ->setAttributesAndValues({{"a", "2"}, {schema::kRecordName, "Papers"}});
     },
     [](DirectoryNode& node) {
       return allNames(node) == std::vector<std::string>{"Papers"} &&
              valueOf(node, "Papers", "a") == "2";
     },
     [](DirectoryNode& node) {
       return allNames(node) == std::vector<std::string>{"Docs"} &&
              valueOf(node, "Docs", "a") == "1";
     }},
    {"Remove", [](DirectoryNode& node) { node.newRecord("Docs", kShares); },
     [](DirectoryNode& node) {
       if (const auto record = node.findRecord("Docs", kShares)) record->removeRecord();
     },
     [](DirectoryNode& node) { return allNames(node).empty(); },
     [](DirectoryNode& node) { return allNames(node) == std::vector<std::string>{"Docs"}; }},
    {"Read", [](DirectoryNode& node) { node.newRecord("Docs", kShares)->setAttribute("a", "1"); },
     [](DirectoryNode& node) { EXPECT_EQ(valueOf(node, "Docs", "a"), "1"); },
     [](DirectoryNode& node) { return valueOf(node, "Docs", "a") == "1"; },
     [](DirectoryNode& node) { return valueOf(node, "Docs", "a") == "1"; }},
};

class LdapCutsTest : public LdapTest, public ::testing::WithParamInterface<Operation> {
 protected:
  void SetUp() override {
    LdapTest::SetUp();
    if (IsSkipped()) return;
    proxy_ = std::make_unique<CuttingProxy>(slapd().folder().path("socket"));
  }
  CuttingProxy& proxy() { return *proxy_; }
  std::shared_ptr<DirectoryNode> throughProxy() {
    LdapOptions options = slapd().nodeOptions();
    options.uri = proxy().uri();
    return nodeWith(options);
  }
  void clear() {
    for (const std::string& name : allNames(*node()))
      node()->findRecord(name, kShares)->removeRecord();
  }

 private:
  std::unique_ptr<CuttingProxy> proxy_;
};
INSTANTIATE_TEST_SUITE_P(Ldap, LdapCutsTest, ::testing::ValuesIn(kOperations),
                         [](const auto& each) { return std::string(each.param.name); });

constexpr int kMostMessages = 60;

TEST_P(LdapCutsTest, AConnectionThatBreaksOnceIsMadeAgainAndTheWorkIsDoneOnce) {
  for (const Cut cut : {Cut::request, Cut::answer}) {
    bool wasCut = true;
    int number = 0;
    while (wasCut && number < kMostMessages) {
      GetParam().prepare(*node());
      const auto asked = throughProxy();
      proxy().cutAt(++number, cut, false);
      EXPECT_EQ(raised([&] { GetParam().run(*asked); }), 0) << "message " << number;
      wasCut = proxy().hasCut();
      proxy().heal();
      EXPECT_TRUE(GetParam().isDone(*node())) << "message " << number;
      clear();
    }
    EXPECT_LT(number, kMostMessages);
    EXPECT_GT(number, 2);
  }
}

TEST_P(LdapCutsTest, AServerThatDiesLeavesTheWorkDoneOrNotDone) {
  for (const Cut cut : {Cut::request, Cut::answer}) {
    bool wasCut = true;
    int number = 0;
    while (wasCut && number < kMostMessages) {
      GetParam().prepare(*node());
      const auto asked = throughProxy();
      proxy().cutAt(++number, cut, true);
      const Status status = raised([&] { GetParam().run(*asked); });
      wasCut = proxy().hasCut();
      proxy().heal();
      EXPECT_TRUE(status != 0 || GetParam().isDone(*node())) << "message " << number;
      EXPECT_TRUE(GetParam().isDone(*node()) || GetParam().isUndone(*node()))
          << "message " << number << ", status " << status;
      if (status != 0) {
        EXPECT_THAT(status, AnyOf(ECONNRESET, ECONNREFUSED, EHOSTUNREACH, EKEYREJECTED));
      }
      // What is left stands in nobody's way.
      if (!GetParam().isDone(*node())) {
        GetParam().run(*node());
      }
      EXPECT_TRUE(GetParam().isDone(*node())) << "message " << number;
      clear();
    }
    EXPECT_LT(number, kMostMessages);
    EXPECT_GT(number, 2);
  }
}

}  // namespace
}  // namespace paddock
