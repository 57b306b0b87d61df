// The state of a folder as a client names it: what counts, and writing in one state alone.
#include "handler/folder_state.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <optional>
#include <set>
#include <thread>

#include "paddock/request_conditions.h"
#include "support/handler_fixture.h"

namespace paddock {
namespace {

class FolderStateTags : public HandlerFixture {
 protected:
  static std::string asItIs(std::string_view state) { return std::string(state); }

  static Dictionary folderRequest(const std::string& path) {
    return {{"optionalArguments", Dictionary{{"path", path}}}};
  }
  static Dictionary naming(const std::string& path, const std::string& name) {
    Dictionary request = folderRequest(path);
    request.set("configuration",
                Dictionary{{"sharePointRecord", Dictionary{{"path", path}, {"name", name}}}});
    return request;
  }

  std::string tagOf(const std::string& path) { return tagOf("readSettings", folderRequest(path)); }
  std::string tagOf(const std::string& operation, const Dictionary& request) {
    RequestConditions conditions(std::nullopt, asItIs);
    const RequestConditionsScope scope(&conditions);
    handler.performOperation(operation, request);
    return conditions.replyTag();
  }

  // Whether the request was carried out in the state of that tag alone.
  bool write(const Dictionary& request, const std::string& ifMatch) {
    RequestConditions conditions(ifMatch, asItIs);
    const RequestConditionsScope scope(&conditions);
    try {
      handler.performOperation("writeSettings", request);
      return true;
    } catch (const PreconditionFailed&) {
      return false;
    }
  }
};

// The settings of a folder that is shared, with one entry.
Dictionary settingsWith(const Dictionary& entry, const Dictionary& sharePoint) {
  return {{"fileAccessPrivs", Dictionary{{"owner", "anna"}, {"acl", Array{entry}}, {"path", "/a"}}},
          {"sharePointRecord", sharePoint}};
}

TEST_F(FolderStateTags, PrincipalNamesAndPathAreIgnored) {
  const Dictionary entry{{"guid", "G"}, {"bitmap", 2}, {"displayName", "Anna"}, {"isUser", 0}};
  const Dictionary unnamed{{"guid", "G"}, {"bitmap", 2}, {"displayName", "G"}, {"isUser", 7}};
  Dictionary other = settingsWith(unnamed, {});
  Dictionary privileges = *other.dictionary("fileAccessPrivs");
  privileges.set("path", "/A");
  other.set("fileAccessPrivs", privileges);
  EXPECT_EQ(folderState(settingsWith(entry, {}), {}), folderState(other, {}));
}

TEST_F(FolderStateTags, EverythingElseCounts) {
  const Dictionary entry{{"guid", "G"}, {"bitmap", 2}};
  const auto state = [](const Dictionary& of, const Dictionary& sharePoint,
                        const Dictionary& unlisted = {}) {
    return folderState(settingsWith(of, sharePoint), unlisted);
  };
  const std::string first = state(entry, {{"name", "a"}});
  EXPECT_NE(first, state({{"guid", "G"}, {"bitmap", 4}}, {{"name", "a"}}));
  EXPECT_NE(first, state({{"guid", "G"}, {"bitmap", "2"}}, {{"name", "a"}}));
  EXPECT_NE(first, state(entry, {{"name", "b"}}));
  EXPECT_NE(first, state(entry, {{"name", true}}));
  EXPECT_NE(first, state(entry, {{"nam", "ea"}}));
  EXPECT_NE(first, state(entry, {{"name", "a"}}, {{"mode", 0755}}));
}

// Each of these reads as the one before it does.
TEST_F(FolderStateTags, ListPresenceAndCompletenessArePartOfState) {
  addSharePoint("a", "/srv/a");
  tree.setFolder("/srv/a");
  const std::string without = tagOf("/srv/a");
  StoredAcl list;
  tree.setAcl("/srv/a", list);
  const std::string empty = tagOf("/srv/a");
  list.complete = true;
  tree.setAcl("/srv/a", list);
  const std::string nobody = tagOf("/srv/a");
  EXPECT_EQ((std::set{without, empty, nobody}.size()), 3U);
  Dictionary request = folderRequest("/srv/a");
  request.set("configuration", Dictionary{{"fileAccessPrivs", Dictionary{{"acl", Array{}}}}});
  EXPECT_FALSE(write(request, without)) << "somebody has locked the folder since";
  ASSERT_NE(tree.acl("/srv/a"), nullptr);
  EXPECT_TRUE(tree.acl("/srv/a")->complete);
  expectLockFree();
}

TEST_F(FolderStateTags, SetIdBitsArePartOfState) {
  tree.set("/srv/a", {"root", "root", 0755, "directory"});
  const std::string plain = tagOf("/srv/a");
  tree.set("/srv/a", {"root", "root", 02755, "directory"});
  EXPECT_NE(tagOf("/srv/a"), plain);
  EXPECT_FALSE(write(naming("/srv/a", "a"), plain));
}

TEST_F(FolderStateTags, UnlistedRecordAttributesArePartOfState) {
  addSharePoint("a", "/srv/a", {{"dsAttrTypeNative:smb_options", "read only = yes"}});
  const std::string readOnly = tagOf("/srv/a");
  removeRecord(schema::kSharePoints, "a");
  addSharePoint("a", "/srv/a", {{"dsAttrTypeNative:smb_options", "read only = no"}});
  EXPECT_NE(tagOf("/srv/a"), readOnly);
  EXPECT_FALSE(write(naming("/srv/a", "b"), readOnly));
  EXPECT_EQ(sharePointNames(), std::vector<std::string>{"a"});
}

TEST_F(FolderStateTags, OnlyReadsWithPathReturnTag) {
  addSharePoint("a", "/srv/a");
  EXPECT_NE(tagOf("/srv/a"), "");
  EXPECT_EQ(tagOf("/srv/a"), tagOf("/srv/a"));
  EXPECT_NE(tagOf("/srv/a"), tagOf("/srv/b"));
  EXPECT_EQ(tagOf("readSettings", {}), "");
  EXPECT_EQ(tagOf("getSharePointList", {}), "");
}

TEST_F(FolderStateTags, WritingInTheStateThatWasReadSucceeds) {
  addSharePoint("a", "/srv/a");
  const std::string tag = tagOf("/srv/a");
  EXPECT_TRUE(write(naming("/srv/a", "b"), tag));
  EXPECT_NE(tagOf("/srv/a"), tag);
  expectLockFree();
}

TEST_F(FolderStateTags, WritingInAnotherStateChangesNothing) {
  addSharePoint("a", "/srv/a");
  const std::string tag = tagOf("/srv/a");
  ASSERT_TRUE(write(naming("/srv/a", "b"), tag));
  const std::string changed = tagOf("/srv/a");
  EXPECT_FALSE(write(naming("/srv/a", "c"), tag));
  expectLockFree();
  EXPECT_EQ(tagOf("/srv/a"), changed);
}

TEST_F(FolderStateTags, AChangeOfTheExportIsAnotherState) {
  addSharePoint("a", "/srv/a");
  const std::string tag = tagOf("/srv/a");
  Dictionary request = naming("/srv/a", "a");
  Dictionary record{{"path", "/srv/a"}, {"name", "a"}, {"nfsExportRecord", exportTo("*", {"rw"})}};
  request.set("configuration", Dictionary{{"sharePointRecord", record}});
  handler.performOperation("writeSettings", request);
  EXPECT_FALSE(write(naming("/srv/a", "c"), tag));
}

TEST_F(FolderStateTags, AStarIsForWhatIsThere) {
  addSharePoint("a", "/srv/a");
  EXPECT_TRUE(write(naming("/srv/a", "b"), "*"));
  EXPECT_FALSE(write(naming("/srv/missing", "b"), "*"));
}

TEST_F(FolderStateTags, WholeServerMatchesNoTag) {
  EXPECT_FALSE(write({}, tagOf("/srv/a")));
  EXPECT_TRUE(write({}, "*"));
  EXPECT_TRUE(write({}, "*"));
}

TEST_F(FolderStateTags, WriteReturnsResultingState) {
  addSharePoint("a", "/srv/a");
  const std::string left = tagOf("writeSettings", naming("/srv/a", "b"));
  EXPECT_NE(left, "");
  EXPECT_EQ(left, tagOf("/srv/a"));
}

TEST_F(FolderStateTags, WriteReturnsNoStateAfterConcurrentWrite) {
  addSharePoint("a", "/srv/a");
  std::promise<void> done;
  std::string left;
  std::thread writer([&] {
    RequestConditions conditions(std::nullopt, asItIs);
    const RequestConditionsScope scope(&conditions);
    for (int round = 0; round < 200; ++round) {
      handler.performOperation("writeSettings", naming("/srv/a", "a" + std::to_string(round)));
      if (conditions.replyTag().empty()) break;
    }
    left = conditions.replyTag();
    done.set_value();
  });
  auto ended = done.get_future();
  while (ended.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
    handler.performOperation("writeSettings", naming("/srv/b", "b"));
  }
  writer.join();
  EXPECT_EQ(left, "");
}

}  // namespace
}  // namespace paddock
