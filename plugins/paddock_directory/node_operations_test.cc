#include "paddock_directory/node_operations.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "paddock/unanswered_nodes.h"
#include "platform/linux/process/case_fold.h"
#include "platform/testing/fake_machine_information.h"
#include "platform/testing/fault_plan.h"
#include "platform/testing/forwarding_directory.h"
#include "platform/testing/in_memory_directory.h"

namespace paddock {
namespace {

Dictionary answering(const std::string& path, const std::string& state, int milliseconds = 0) {
  return {{"path", path}, {"milliseconds", milliseconds}, {"state", state}};
}

// Does something of a test's before each session is opened.
class WatchedDirectory final : public DirectoryService {
 public:
  WatchedDirectory(DirectoryService& directory, std::function<void()> before)
      : directory_(directory), before_(std::move(before)) {}
  std::unique_ptr<DirectorySession> openLocal() override {
    before_();
    return directory_.openLocal();
  }

 private:
  DirectoryService& directory_;
  const std::function<void()> before_;
};

class NodeOperations : public ::testing::Test {
 protected:
  Dictionary list(DirectoryService& service, const Dictionary& request = {}) {
    const Dictionary reply = nodes::list(service, clock_, request);
    EXPECT_EQ(directory_.openSessions(), 0);
    return reply;
  }
  // The reported nodes, in their order; the status was 0.
  Array nodesOf(DirectoryService& service) {
    const Dictionary reply = list(service);
    EXPECT_EQ(reply.integer("status"), 0);
    EXPECT_FALSE(reply.contains("error"));
    return reply.array("nodes") != nullptr ? *reply.array("nodes") : Array();
  }

  InMemoryDirectory directory_{caseFold};
  FakeClock clock_;
};

TEST_F(NodeOperations, ListsSearchPathNodesInOrderWithStates) {
  directory_.addNode("/System", "ReadOnly");
  directory_.addNode("/LDAP/z", "ReadWrite");
  directory_.addNode("/LDAP/a", std::nullopt);
  EXPECT_EQ(nodesOf(directory_),
            (Array{answering("/Local", "writable"), answering("/System", "readable"),
                   answering("/LDAP/z", "writable"), answering("/LDAP/a", "readable")}));
}

TEST_F(NodeOperations, UnopenableNodeIsUnreachableWithReason) {
  directory_.addNode("/LDAP/a", "ReadWrite");
  directory_.addNode("/LDAP/b", "ReadWrite");
  directory_.failOpening("/LDAP/a", ETIMEDOUT);
  const Array nodes = nodesOf(directory_);
  ASSERT_EQ(nodes.size(), 3U);
  EXPECT_EQ(nodes[0], Value(answering("/Local", "writable")));
  EXPECT_EQ(*nodes[1].dictionary()->string("path"), "/LDAP/a");
  EXPECT_EQ(*nodes[1].dictionary()->string("state"), "unreachable");
  EXPECT_FALSE(nodes[1].dictionary()->string("error")->empty());
  EXPECT_EQ(nodes[2], Value(answering("/LDAP/b", "writable")));
}

TEST_F(NodeOperations, NodeFailingLookupOrDescriptionReportsError) {
  const std::vector<std::pair<std::optional<Status>, std::string>> troubles = {
      {ETIMEDOUT, "unreachable"}, {EACCES, "refused"}, {EIO, "broken"}, {std::nullopt, "broken"}};
  for (const char* failing : {"node.findRecord", "node.getAttribute", "session.findNode"}) {
    for (const auto& [error, state] : troubles) {
      FaultPlan plan(failing == std::string("node.getAttribute") ? 2 : 1);  // 1: the search path
      plan.countOnly(failing);
      if (error) plan.setError(*error);
      ForwardingDirectory faulty(directory_, plan);
      const Array nodes = nodesOf(faulty);
      ASSERT_EQ(nodes.size(), 1U) << failing;
      EXPECT_EQ(*nodes[0].dictionary()->string("state"), state) << failing;
      EXPECT_TRUE(nodes[0].dictionary()->contains("error")) << failing;
    }
  }
}

TEST_F(NodeOperations, TheMillisecondsAreThoseUntilTheNodeAnswered) {
  int sessions = 0;
  WatchedDirectory slow(directory_, [&] {
    if (++sessions == 2) clock_.advance(std::chrono::milliseconds(37));
  });
  EXPECT_EQ(nodesOf(slow), Array{answering("/Local", "writable", 37)});
  sessions = 0;
  directory_.failOpening("/Local", ETIMEDOUT);
  EXPECT_EQ(nodesOf(slow).front().dictionary()->integer("milliseconds"), 37);
}

TEST_F(NodeOperations, NodesAreAskedAtTheSameTime) {
  directory_.addNode("/LDAP/a", "ReadWrite");
  directory_.addNode("/LDAP/b", "ReadWrite");
  Mutex mutex;
  ConditionVariable changed;
  int sessions = 0;
  // The first session is for the search path; those of the nodes wait for one another.
  WatchedDirectory meeting(directory_, [&] {
    MutexLock lock(mutex);
    if (++sessions == 1) return;
    changed.notify_all();
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (sessions != 4 && changed.wait_until(mutex, end)) continue;
    EXPECT_EQ(sessions, 4);
  });
  EXPECT_EQ(nodesOf(meeting).size(), 3U);
}

TEST_F(NodeOperations, OnlyTheNodesThatAreNamedAreAsked) {
  directory_.addNode("/LDAP/a", "ReadWrite");
  directory_.failOpening("/Local", EIO);
  const Dictionary reply = list(directory_, {{"paths", Array{"/LDAP/a", 7, "/LDAP/none"}}});
  const Array* nodes = reply.array("nodes");
  ASSERT_NE(nodes, nullptr);
  ASSERT_EQ(nodes->size(), 2U);
  EXPECT_EQ(nodes->front(), Value(answering("/LDAP/a", "writable")));
  EXPECT_EQ(*nodes->back().dictionary()->string("path"), "/LDAP/none");
  EXPECT_EQ(*nodes->back().dictionary()->string("state"), "broken");
  EXPECT_EQ(*nodes->back().dictionary()->string("error"),
            "there is no directory node \"/LDAP/none\"");
  EXPECT_EQ(list(directory_, {{"paths", Array{}}}),
            (Dictionary{{"nodes", Array{}}, {"status", 0}}));
}

TEST_F(NodeOperations, ManyNamedNodesAreReturnedInOrder) {
  Array paths;
  for (int number = 0; number < 100; ++number)
    paths.emplace_back(number % 2 == 0 ? "/Local" : "/LDAP/" + std::to_string(number));
  const Dictionary reply = list(directory_, {{"paths", paths}});
  const Array* nodes = reply.array("nodes");
  ASSERT_NE(nodes, nullptr);
  Array told;
  for (const Value& node : *nodes) told.emplace_back(*node.dictionary()->string("path"));
  EXPECT_EQ(told, paths);
}

TEST_F(NodeOperations, MillionPathsAreRefusedWithoutAskingAnyNode) {
  int sessions = 0;
  WatchedDirectory counted(directory_, [&] { ++sessions; });
  for (const std::size_t count : {nodes::kMostPaths + 1, std::size_t{1000000}}) {
    // Elements that are no texts count, too.
    for (const Value& element : {Value("/LDAP/none"), Value(7)}) {
      const Dictionary reply = list(counted, {{"paths", Array(count, element)}});
      EXPECT_EQ(reply.integer("status"), E2BIG);
      EXPECT_EQ(*reply.string("message"),
                "paths has " + std::to_string(count) + " elements, and may have at most 256");
      EXPECT_FALSE(reply.contains("nodes"));
    }
  }
  EXPECT_EQ(sessions, 0);
}

TEST_F(NodeOperations, EachNamedNodeIsAskedOnce) {
  directory_.addNode("/LDAP/a", "ReadWrite");
  Mutex mutex;
  int sessions = 0;
  WatchedDirectory counted(directory_, [&] {
    const MutexLock lock(mutex);
    ++sessions;
  });
  Array paths(nodes::kMostPaths - 1, "/LDAP/a");
  paths.emplace_back("/LDAP/none");
  const Dictionary reply = list(counted, {{"paths", paths}});
  ASSERT_NE(reply.array("nodes"), nullptr);
  ASSERT_EQ(reply.array("nodes")->size(), nodes::kMostPaths);
  EXPECT_EQ(*reply.array("nodes")->front().dictionary()->string("state"), "writable");
  EXPECT_EQ(*reply.array("nodes")->back().dictionary()->string("state"), "broken");
  EXPECT_EQ(sessions, 2);
}

TEST_F(NodeOperations, UnreadableSearchPathReturnsStatus) {
  for (const char* failing : {"directory.openLocal", "session.searchNode", "node.getAttribute"}) {
    FaultPlan plan(1);
    plan.countOnly(failing);
    plan.setError(EACCES);
    ForwardingDirectory faulty(directory_, plan);
    const Dictionary reply = list(faulty);
    EXPECT_EQ(reply.integer("status"), EACCES) << failing;
    EXPECT_EQ(*reply.string("error"), "Permission denied") << failing;
    EXPECT_FALSE(reply.contains("nodes")) << failing;
  }
}

TEST_F(NodeOperations, UnansweringNodeIsMarkedUntilItAnswers) {
  directory_.addNode("/LDAP/a", "ReadOnly");
  directory_.failOpening("/LDAP/a", ECONNREFUSED);
  nodes::list(directory_, clock_, {{"paths", Array{"/LDAP/a", "/LDAP/none"}}});
  EXPECT_TRUE(unansweredNodes().empty()) << "a path of the request's";
  nodesOf(directory_);
  ASSERT_EQ(unansweredNodes().size(), 1U);
  EXPECT_EQ(unansweredNodes()[0].path, "/LDAP/a");
  EXPECT_EQ(unansweredNodes()[0].trouble, NodeTrouble::unreachable);
  directory_.failOpening("/LDAP/a", EACCES);
  nodes::askAgain(directory_, clock_);
  ASSERT_EQ(unansweredNodes().size(), 1U);
  EXPECT_EQ(unansweredNodes()[0].trouble, NodeTrouble::refused);
  directory_.failOpening("/LDAP/a", 0);
  nodes::askAgain(directory_, clock_);
  EXPECT_TRUE(unansweredNodes().empty());
}

}  // namespace
}  // namespace paddock
