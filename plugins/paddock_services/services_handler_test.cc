// The plug-in in a tree of its own, whose programs are scripts.
#include "paddock_services/services_handler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <cerrno>
#include <cstring>

#include <filesystem>

#include "exports/nfs_export_parser.h"
#include "platform/linux/configured_options.h"
#include "store/directory_access.h"
#include "support/plugin_host.h"

namespace paddock {
namespace {

using ::testing::HasSubstr;
namespace fs = std::filesystem;

class ServicesHandler : public ::testing::Test {
 protected:
  ServicesHandler() {
    fs::create_directories(host_.path("/var/lib/paddock"));
    fs::create_directories(host_.path("/usr/bin"));
    fs::create_directories(host_.path("/etc/samba"));
    handler_ = std::make_unique<ServicesRequestHandler>();
  }

  std::string makeFolder(const std::string& name) const {
    fs::create_directories(host_.path("/srv/" + name));
    return host_.path("/srv/" + name);
  }
  void record(const std::string& name, const std::string& path, const Dictionary& more = {}) {
    LinuxDirectoryService directory(configuredDirectory({}, host_.root()));
    const auto made = directory.openLocal()->localNode()->newRecord(name, schema::kSharePoints);
    made->setAttribute(schema::kDirectoryPath, path);
    for (const auto& entry : more) made->setAttribute(entry.key, *entry.value.string());
  }
  void addProgram(const std::string& below, const std::string& commands) const {
    writeWholeFile(host_.path(below), "#!/bin/sh\n" + commands + "\n");
    fs::permissions(host_.path(below), fs::perms::owner_all);
  }
  // A Samba that serves [Photos] of the folder.
  void addSamba(const std::string& folder) const {
    addProgram("/usr/bin/testparm", "echo '[Photos]'; echo 'path = " + folder + "'");
    addProgram("/usr/bin/smbcontrol", "echo PONG from pid 7");
  }

  Dictionary call(const char* operation, const Dictionary& request = {}) {
    Dictionary reply = handler_->performOperation(operation, request);
    EXPECT_EQ(reply.integer("status"), 0);
    return reply;
  }
  Dictionary served(const std::string& path, bool duringChange = false) {
    const Dictionary reply =
        call("getServed", {{"paths", Array{path}}, {"duringChange", duringChange}});
    return *reply.array("sharePoints")->front().dictionary();
  }
  static std::string stateIn(const Dictionary& share, const char* protocol) {
    return *share.dictionary("protocols")->dictionary(protocol)->string("state");
  }

  PluginHost host_;
  std::unique_ptr<ServicesRequestHandler> handler_;
};

TEST_F(ServicesHandler, EveryOperationMayBeViewed) {
  const auto operations = handler_->operations();
  ASSERT_EQ(operations.size(), 3U);
  for (const auto& operation : operations) EXPECT_FALSE(operation.changes) << operation.name;
  EXPECT_THROW(handler_->performOperation("other", {}), std::invalid_argument);
}

TEST_F(ServicesHandler, ServedSharePointIsReportedAsServed) {
  const std::string path = makeFolder("photos");
  addSamba(path);
  addProgram("/usr/bin/smbclient", "echo NT_STATUS_ACCESS_DENIED; exit 1");
  record("photos", path, {{schema::kSmbName, "Photos"}, {schema::kFtpName, "Photos"}});
  const Dictionary share = served(path);
  EXPECT_EQ(*share.string("folder"), "there");
  EXPECT_EQ(share.boolean("isServed"), true);
  EXPECT_THAT(*share.string("sentence"), testing::StartsWith("Shared over SMB as Photos"));
  EXPECT_EQ(stateIn(share, "smb"), "served");
  EXPECT_EQ(stateIn(share, "ftp"), "kept");
  EXPECT_EQ(stateIn(share, "nfs"), "not shared");
  EXPECT_EQ(call("getServed").array("sharePoints")->size(), 1U);
}

TEST_F(ServicesHandler, AnSmbdThatCannotBeAskedIsUnknown) {
  const std::string path = makeFolder("photos");
  addSamba(path);
  record("photos", path, {{schema::kSmbName, "Photos"}});
  EXPECT_EQ(stateIn(served(path), "smb"), "unknown");
  EXPECT_EQ(served(path).boolean("isServed"), false);
  addProgram("/usr/bin/smbclient", "echo NT_STATUS_CONNECTION_REFUSED; exit 1");
  EXPECT_THAT(*served(path).string("sentence"), testing::HasSubstr("smbd does not answer"));
}

TEST_F(ServicesHandler, StoredNameWithoutServerIsNotServed) {
  const std::string path = makeFolder("photos");
  record("photos", path, {{schema::kFtpName, "Photos"}});
  EXPECT_EQ(stateIn(served(path), "ftp"), "kept");
  EXPECT_EQ(served(path).boolean("isServed"), false);
}

TEST_F(ServicesHandler, DuplicatePathsMergeAndExcessPathsAreRefused) {
  EXPECT_EQ(call("getServed", {{"paths", Array{"/a", "/a", "/b"}}}).array("sharePoints")->size(),
            2U);
  Array many;
  for (int number = 0; number <= 1000; ++number) many.emplace_back("/" + std::to_string(number));
  const Dictionary reply =
      handler_->performOperation("getServed", {{"paths", many}, {"duringChange", true}});
  EXPECT_EQ(reply.integer("status"), E2BIG);
  EXPECT_EQ(reply.find("sharePoints"), nullptr);
}

TEST_F(ServicesHandler, SeparateTreeRunsNoProgramDuringChange) {
  const std::string path = makeFolder("photos");
  addProgram("/usr/bin/testparm", "echo ran >'" + host_.path("/ran") + "'");
  record("photos", path, {{schema::kSmbName, "Photos"}});
  const Dictionary share = served(path, true);
  EXPECT_EQ(stateIn(share, "smb"), "unknown");
  EXPECT_EQ(*share.string("sentence"),
            "SMB: not known: " + host_.root() + " is a tree of its own, without servers");
  EXPECT_FALSE(fs::exists(host_.path("/ran")));
  served(path);
  EXPECT_TRUE(fs::exists(host_.path("/ran")));
}

TEST_F(ServicesHandler, MissingFolderIsNotServed) {
  const std::string path = host_.path("/srv/gone");
  addSamba(path);
  record("gone", path, {{schema::kSmbName, "Photos"}});
  Dictionary share = served(path);
  EXPECT_EQ(*share.string("folder"), "gone");
  EXPECT_EQ(share.boolean("isServed"), false);
  EXPECT_EQ(*share.string("sentence"), "SMB: not served: its folder is gone");
  makeFolder("");
  writeWholeFile(path, "");
  EXPECT_EQ(*served(path).string("folder"), "no folder");
}

TEST_F(ServicesHandler, VspServerStateFollowsConfiguration) {
  const std::string path = makeFolder("a");
  record("a", path, {{schema::kVspName, "A"}, {schema::kVspShared, "1"}});
  const auto vsp = [this, &path](const Dictionary& table) {
    host_.configure({{"vsp", table}});
    return stateIn(served(path), "vsp");
  };
  EXPECT_EQ(vsp({}), "kept");
  EXPECT_EQ(vsp({{"state", "running"}}), "kept");
  EXPECT_EQ(vsp({{"sync_command", Array{"/bin/sync"}}}), "unknown");
  // This host's plug-ins do not respond.
  EXPECT_EQ(vsp({{"state", "unit:vspd.service"}}), "unknown");
}

TEST_F(ServicesHandler, UnsharedFolderIsReportedAsUnshared) {
  const std::string path = makeFolder("photos");
  const Dictionary share = served(path);
  EXPECT_EQ(share.boolean("isShared"), false);
  EXPECT_EQ(*share.string("sentence"), "");
  addSamba(path);
  EXPECT_THAT(*served(path).string("sentence"),
              HasSubstr("SMB as Photos (by a section of smb.conf)"));
}

TEST_F(ServicesHandler, KeysOfOtherTypesReadAsAbsent) {
  for (const Value& value : {Value(7), Value("x"), Value(Dictionary{}), Value(Array{Value(7)})}) {
    const Dictionary request{{"paths", value},
                             {"duringChange", value},
                             {"path", value},
                             {"nameOverSMB", value},
                             {"clients", value}};
    EXPECT_TRUE(call("getServed", request).array("sharePoints")->empty());
    call("checkShare", request);
  }
}

TEST_F(ServicesHandler, TheCheckAsksTheDirectory) {
  record("photos", makeFolder("photos"), {{schema::kSmbName, "Photos"}});
  const auto refusals = [this](const std::string& path) {
    return call("checkShare", {{"path", path}, {"nameOverSMB", "photos"}})
        .array("refusals")
        ->size();
  };
  EXPECT_EQ(refusals("/srv/other"), 1U);
  EXPECT_EQ(refusals(host_.path("/srv/photos")), 0U);
}

TEST_F(ServicesHandler, TheCheckNamesUnfinishedRecords) {
  record("photos", makeFolder("photos"), {});
  EXPECT_EQ(*call("checkShare", {}).array("unfinished"), Array{});
  record("begun", "", {});
  EXPECT_EQ(*call("checkShare", {}).array("unfinished"), Array{"begun"});
  record("relative", "srv/photos", {});
  EXPECT_EQ(*call("checkShare", {}).array("unfinished"), (Array{"begun", "relative"}));
  EXPECT_EQ(call("getServed", {}).array("sharePoints")->size(), 1U) << "they share nothing";
}

TEST_F(ServicesHandler, EveryLineOfAPathIsTold) {
  EXPECT_EQ(*call("getExports", {{"path", "/srv/a"}}).array("exports"), Array{});
  const std::string first = "/srv/a  one(rw)\n";
  const std::string second = "/srv/a two(ro) \\\n three(ro)\n";
  writeWholeFile(host_.path("/etc/exports"), "/srv/a hand(ro)\n" + std::string(kBeginMarker) +
                                                 "\n" + first + "/srv/b *(ro)\n" + second +
                                                 kEndMarker + "\n");
  const Array exports = *call("getExports", {{"path", "/srv/a"}}).array("exports");
  ASSERT_EQ(exports.size(), 2U);
  EXPECT_EQ(*exports[0].dictionary()->string("line"), first);
  EXPECT_EQ(*exports[1].dictionary()->string("line"), second);
  EXPECT_EQ(exports[0].dictionary()->array("clients")->size(), 1U);
  EXPECT_EQ(exports[1].dictionary()->array("clients")->size(), 2U);
  EXPECT_EQ(*handler_->performOperation("getExports", {}).integer("status"), EINVAL);
}

TEST_F(ServicesHandler, UnreadableExportsFileIsDistinctFromEmptyFile) {
  writeWholeFile(host_.path("/etc/exports"), "# caf\xE9\n");
  const Dictionary reply = handler_->performOperation("getExports", {{"path", "/srv/a"}});
  EXPECT_EQ(*reply.integer("status"), EILSEQ);
  EXPECT_EQ(*reply.string("error"), std::strerror(EILSEQ));
  EXPECT_THAT(*reply.string("message"), HasSubstr("cannot read"));
  EXPECT_FALSE(reply.contains("exports"));
}

TEST_F(ServicesHandler, UnfinishedRecordsAreNotAmongTheShares) {
  record("begun", "", {});
  record("half", "relative/half", {});
  EXPECT_TRUE(call("getServed").array("sharePoints")->empty());
}

}  // namespace
}  // namespace paddock
