// The calls that one request makes of the outside world: each of them, and in their order.
#include <gtest/gtest.h>

#include "store/schema.h"
#include "store/share_point_writing.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using Names = std::vector<std::string>;

class Owner : public NetServiceOwner {
 public:
  std::shared_ptr<NetService> netService() const override { return service_; }
  void setNetService(std::shared_ptr<NetService> service) override {
    service_ = std::move(service);
  }
  void netServiceWillPublish(NetService&) override {}
  void netServiceDidNotPublish(NetService&, const Dictionary&) override {}
  void netServiceDidStop(NetService&) override {}

 private:
  std::shared_ptr<NetService> service_;
};

class SharePointWritingOrderTest : public ModuleFixture {
 protected:
  void write(const std::vector<Dictionary>& list) {
    std::vector<SharePointRecord> sharePoints;
    sharePoints.reserve(list.size());
    for (const Dictionary& settings : list) {
      sharePoints.push_back(SharePointRecord::recordWithDictionary(settings));
    }
    Context context;
    trace.forgetCalls();
    EXPECT_EQ(write_sharepoints(sharePoints, context, {}, owner_), 0);
  }
  static Dictionary exported(const std::string& name) {
    return {{"path", "/srv/" + name}, {"name", name}, {"nfsExportRecord", exportTo("*", {"rw"})}};
  }
  static Dictionary deletion(const std::string& name) {
    return {{"path", "/srv/" + name}, {"isDeleted", true}};
  }
  // Every call that changes or tells something outside of the module.
  Names outsideCalls() const {
    return trace.sequence({"newRecord", "removeRecord", "setAttributesAndValues", "insertLast",
                           "removeItem", "replace", "copyOnce", "applyAttributes", "acl_set_file",
                           "setStoreAttributes", "createStore", "quotactl", "start", "run",
                           "doCommand"});
  }

  Owner owner_;
};

// `texts` and then the three steps of telling the services.
void addAndTell(Names& calls, std::initializer_list<const char*> texts) {
  calls.insert(calls.end(), texts.begin(), texts.end());
  for (const char* step : {"run /usr/sbin/keelhouse", "doCommand paddock_nfs",
                           "run /usr/libexec/samba/synchronize-shares"}) {
    calls.emplace_back(step);
  }
}

TEST_F(SharePointWritingOrderTest, DeletionsEachToldOfThenWritesThenTheExportsThenAllAreTold) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b");
  readExportsFile(managedBlock({"/srv/a *(ro)"}));
  write({exported("c"), deletion("b"), exported("d"), deletion("a")});
  Names expected;
  addAndTell(expected, {"removeRecord b"});
  addAndTell(expected, {"removeRecord a"});
  addAndTell(expected, {"insertLast file:///srv/c", "newRecord c", "setAttributesAndValues c",
                        "copyOnce /etc/exports", "replace /etc/exports", "insertLast file:///srv/d",
                        "newRecord d", "setAttributesAndValues d", "copyOnce /etc/exports",
                        "replace /etc/exports"});
  EXPECT_EQ(outsideCalls(), expected);
}

TEST_F(SharePointWritingOrderTest, TheExportsOfDeletionsLeaveTheFileAfterTheWrites) {
  addSharePoint("a", "/srv/a");
  readExportsFile(managedBlock({"/srv/a *(ro)"}));
  write({{{"path", "/srv/c"}, {"name", "c"}}, deletion("a")});
  Names expected;
  addAndTell(expected, {"removeRecord a"});
  addAndTell(expected, {"insertLast file:///srv/c", "newRecord c", "setAttributesAndValues c",
                        "copyOnce /etc/exports", "replace /etc/exports"});
  EXPECT_EQ(outsideCalls(), expected);
}

TEST_F(SharePointWritingOrderTest, AnEmptyListOnlyTells) {
  write({});
  Names expected;
  addAndTell(expected, {});
  EXPECT_EQ(outsideCalls(), expected);
}

TEST_F(SharePointWritingOrderTest, NDeletionsTellNPlusOneTimes) {
  for (const std::size_t count : {1U, 2U, 7U}) {
    std::vector<Dictionary> list;
    for (std::size_t number = 0; number < count; ++number) {
      list.push_back(deletion(std::to_string(number)));
    }
    write(list);
    EXPECT_EQ(trace.count("run"), 2 * (count + 1));
  }
}

}  // namespace
}  // namespace paddock
