// The order and the number of everything that a write request does outside the process: what it
// changes, what it commands, what it runs and what it advertises.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "base/guid.h"
#include "store/directory_access.h"
#include "store/share_point_writing.h"
#include "support/advertiser.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using Steps = std::vector<std::string>;

constexpr const char* kGroup = "com.veltro.access_backup";

class SharePointWritingOrder : public ModuleFixture {
 protected:
  SharePointWritingOrder() {
    accounts.addGroup(kGroup, 250);
    plugins.setPlugin("paddock_vsp", [](const Dictionary&) {
      return Dictionary{{"state", "RUNNING"}};
    });
  }

  void write(const std::vector<Dictionary>& list) {
    std::vector<SharePointRecord> sharePoints;
    sharePoints.reserve(list.size());
    for (const Dictionary& settings : list) {
      sharePoints.push_back(SharePointRecord::recordWithDictionary(settings));
    }
    trace.forgetCalls();
    EXPECT_EQ(write_sharepoints(sharePoints, context_, {}, owner_), 0);
  }
  static Dictionary deletion(const std::string& path) {
    return {{"path", path}, {"isDeleted", true}};
  }
  static Dictionary backup(const std::string& name) {
    return {{"path", "/srv/" + name},
            {"name", name},
            {"nameOverVSP", name},
            {"isSharedOverVSP", true},
            {"isBackstowBackup", true}};
  }

  // A call that only asks for something.
  static bool isQuestion(const ServiceCall& call) {
    static const std::set<std::string> questions = {"openLocal",
                                                    "localNode",
                                                    "searchNode",
                                                    "findNode",
                                                    "findRecordsOfTypes",
                                                    "findRecordNames",
                                                    "findRecord",
                                                    "getNodeAttribute",
                                                    "getAllAttributes",
                                                    "getAllAttributesAndValues",
                                                    "getAttribute",
                                                    "getAttributeFirstValue",
                                                    "read",
                                                    "identify",
                                                    "exists",
                                                    "statfs",
                                                    "statistics",
                                                    "getmntinfo",
                                                    "createSharePointList",
                                                    "snapshot",
                                                    "resolve",
                                                    "readAttributes",
                                                    "fileExists",
                                                    "acl_get_file",
                                                    "acl_valid",
                                                    "copyStorePaths",
                                                    "copyStoreAttributes",
                                                    "getpwnam",
                                                    "getgrnam",
                                                    "getpwuid",
                                                    "getgrgid",
                                                    "getgrnam_r"};
    return questions.contains(call.operation);
  }
  // Everything else, in its order; what is written into the exports file left out.
  Steps steps() const {
    Steps found;
    for (const ServiceCall& call : trace.calls()) {
      if (isQuestion(call)) continue;
      std::string step = call.operation + " " + call.subject;
      if (call.operation != "replace" && call.operation != "copyOnce" && !call.detail.empty()) {
        step += " " + call.detail;
      }
      found.push_back(step);
    }
    return found;
  }
  static void append(Steps& steps, const Steps& more) {
    steps.insert(steps.end(), more.begin(), more.end());
  }
  static Steps removalOfAutomountAttributes(const std::string& name) {
    Steps steps;
    for (const char* attribute :
         {schema::kIsAutomounted, schema::kStaticMountPath, schema::kAutomountDsPath,
          schema::kAutomountFileSystem, schema::kAutomountRecordName}) {
      steps.push_back("removeAttribute " + name + " " + attribute);
    }
    return steps;
  }
  const Steps synchronisation_ = {"run /usr/sbin/keelhouse command vsp:command = syncSharePoints",
                                  "doCommand paddock_nfs updateNFS",
                                  "run /usr/libexec/samba/synchronize-shares"};
  const Steps publication_ = {"createService _adisk._tcp 311", "setDelegate _adisk._tcp",
                              "setTxtRecordData _adisk._tcp", "publish _adisk._tcp"};

  Context context_;
  Advertiser owner_;
};

TEST_F(SharePointWritingOrder, OfNothingIsTheEndAlone) {
  write({});
  Steps expected = {"doCommand paddock_vsp getState"};
  append(expected, synchronisation_);
  EXPECT_EQ(steps(), expected);
}

TEST_F(SharePointWritingOrder, DeletionsPrecedeWritesAndFinalStepsRunOnce) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b");
  sharedFiles.insert("file:///srv/b");
  stores.setLevel("/srv/b", metadata_store::kLevelReadWrite);
  files.setFile("/srv/a/.com.veltro.backstow.supported", "");
  readExportsFile(managedBlock({"/srv/a *(ro)"}));
  tree.setFolder("/srv/new");

  Dictionary first = backup("new");
  first.set("nfsExportRecord", exportTo("*", {"rw"}));
  first.set("isIndexingEnabled", true);
  const Dictionary second{{"path", "/srv/plain"}, {"name", "plain"}};
  write({first, deletion("/srv/a"), second, deletion("/srv/b")});

  Steps expected = {"removeRecord a", "removeFile /srv/a .com.veltro.backstow.supported"};
  append(expected, synchronisation_);
  append(expected, {"removeItem ", "setStoreAttributes /srv/b fsSearchOnly",
                    "removeFile /srv/b .com.veltro.backstow.supported"});
  append(expected, synchronisation_);
  append(expected, {"insertLast file:///srv/new", "newRecord new dsRecTypeStandard:SharePoints",
                    "setAttributesAndValues new", "copyOnce /etc/exports", "replace /etc/exports"});
  append(expected, removalOfAutomountAttributes("new"));
  append(expected, {std::string("newRecord ") + kGroup + " dsRecTypeStandard:Groups",
                    std::string("setAttribute ") + kGroup + " " + schema::kPrimaryGroupID,
                    "acl_set_file /srv/new", "newUuid ",
                    std::string("setAttribute new ") + schema::kBackstowBackupUuid,
                    "createStore /srv/new readWrite", "acl_set_file /srv/new"});
  append(expected, {"insertLast file:///srv/plain", "newRecord plain dsRecTypeStandard:SharePoints",
                    "setAttributesAndValues plain"});
  append(expected, removalOfAutomountAttributes("plain"));
  append(expected, {"removeFile /srv/plain .com.veltro.backstow.supported",
                    "doCommand paddock_vsp getState"});
  append(expected, publication_);
  append(expected, synchronisation_);
  EXPECT_EQ(steps(), expected);
}

TEST_F(SharePointWritingOrder, ExportsFileIsWrittenBeforeAdvertisementRenewal) {
  tree.setFolder("/srv/a");
  write({backup("a")});
  setExportsFile("/by/hand *(ro)\n\n\n");
  readExportsFile("/by/hand *(ro)\n\n\n");
  write({});
  Steps expected = {"copyOnce /etc/exports", "replace /etc/exports",
                    "doCommand paddock_vsp getState", "stop _adisk._tcp"};
  append(expected, publication_);
  append(expected, synchronisation_);
  EXPECT_EQ(steps(), expected);
}

TEST_F(SharePointWritingOrder, DeletedExportsLeaveFileAfterWrites) {
  addSharePoint("a", "/srv/a");
  readExportsFile(managedBlock({"/srv/a *(ro)"}));
  write({{{"path", "/srv/c"}, {"name", "c"}}, deletion("/srv/a")});
  EXPECT_EQ(trace.sequence({"removeRecord", "newRecord", "replace", "doCommand"}),
            (Steps{"removeRecord a", "doCommand paddock_nfs", "newRecord c", "replace /etc/exports",
                   "doCommand paddock_vsp", "doCommand paddock_nfs"}));
}

TEST_F(SharePointWritingOrder, DeletingLastDestinationEndsAdvertisement) {
  addSharePoint("a", "/srv/a", {{schema::kBackstowBackup, "1"}, {schema::kVspShared, "1"}});
  write({});
  write({deletion("/srv/a")});
  Steps expected = {"removeRecord a", "removeFile /srv/a .com.veltro.backstow.supported"};
  append(expected, synchronisation_);
  append(expected, {"doCommand paddock_vsp getState", "stop _adisk._tcp"});
  append(expected, synchronisation_);
  EXPECT_EQ(steps(), expected);
}

TEST_F(SharePointWritingOrder, DeletionsNotifyServicesOnceEachAndAtEnd) {
  std::vector<Dictionary> list;
  for (int number = 0; number < 7; ++number) {
    const std::string name = "s" + std::to_string(number);
    addSharePoint(name, "/srv/" + name);
    list.push_back(deletion("/srv/" + name));
  }
  write(list);
  EXPECT_EQ(trace.count("run"), 2U * 8U);
  EXPECT_EQ(trace.count("doCommand"), 8U + 1U);
  EXPECT_EQ(trace.count("removeFile"), 7U);
  const Steps all = steps();
  EXPECT_EQ(all.back(), "run /usr/libexec/samba/synchronize-shares");
}

TEST_F(SharePointWritingOrder, AdvertisementQueriesDirectoryAfterAllWrites) {
  tree.setFolder("/srv/a");
  write({backup("a")});
  std::size_t lastChange = 0;
  std::size_t search = 0;
  const auto calls = trace.calls();
  for (std::size_t at = 0; at < calls.size(); ++at) {
    if (calls[at].operation == "setAttribute") lastChange = at;
    if (calls[at] == ServiceCall{"findRecordNames", kRecordsAll, schema::kSharePoints}) search = at;
  }
  EXPECT_GT(lastChange, 0U);
  EXPECT_GT(search, lastChange);
}

}  // namespace
}  // namespace paddock
