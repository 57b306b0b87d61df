#include "paddock/unanswered_nodes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "paddock/sys_logger.h"

namespace paddock {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class UnansweredNodes : public ::testing::Test {
 protected:
  void SetUp() override {
    installLogSink([this](int priority, const std::string& line) {
      lines_.push_back(std::to_string(priority) + " " + line);
    });
  }
  void TearDown() override {
    for (const UnansweredNode& node : unansweredNodes()) noteAnswered(node.path);
    installLogSink(nullptr);
  }

  std::vector<std::string> lines_;
};

TEST_F(UnansweredNodes, AreMarkedUntilTheyAnswer) {
  EXPECT_THAT(unansweredNodes(), IsEmpty());
  noteAnswered("/LDAP/a");
  EXPECT_THAT(lines_, IsEmpty());
  noteUnanswered("/LDAP/b", NodeTrouble::unreachable, "gone");
  noteUnanswered("/LDAP/a", NodeTrouble::refused, "no rights");
  noteUnanswered("/LDAP/a", NodeTrouble::broken, "damaged");
  const auto nodes = unansweredNodes();
  ASSERT_EQ(nodes.size(), 2U);
  EXPECT_EQ(nodes[0].path + nodes[0].error, "/LDAP/adamaged");
  EXPECT_EQ(nodes[0].trouble, NodeTrouble::broken);
  EXPECT_EQ(nodes[1].path + nodes[1].error, "/LDAP/bgone");
  EXPECT_EQ(nodes[1].trouble, NodeTrouble::unreachable);
  noteAnswered("/LDAP/b");
  noteAnswered("/LDAP/b");
  ASSERT_EQ(unansweredNodes().size(), 1U);
  EXPECT_THAT(
      lines_,
      ElementsAre("4 the directory node /LDAP/b does not answer and is left out: gone",
                  "4 the directory node /LDAP/a refuses to answer and is left out: no rights",
                  "6 the directory node /LDAP/b answers again"));
}

TEST_F(UnansweredNodes, HaveOneLinePerRequest) {
  for (const char* request : {"r1", "r2", "r1"}) {
    const RequestIdScope scope(request);
    noteUnanswered("/LDAP/a", NodeTrouble::broken, "damaged");
    noteUnanswered("/LDAP/a", NodeTrouble::broken, "damaged");
  }
  EXPECT_THAT(lines_, SizeIs(2));
  EXPECT_THAT(
      lines_,
      Each(HasSubstr("the directory node /LDAP/a cannot be read and is left out: damaged")));
}

TEST(NodeTroubles, AreClassifiedByErrorNumber) {
  for (const int error : {ECONNREFUSED, ECONNRESET, ETIMEDOUT, EHOSTUNREACH, EBUSY})
    EXPECT_EQ(nodeTroubleOf(error), NodeTrouble::unreachable) << error;
  for (const int error : {EACCES, EPERM})
    EXPECT_EQ(nodeTroubleOf(error), NodeTrouble::refused) << error;
  for (const int error : {EIO, EPROTO, ENOENT, EKEYREJECTED, EOVERFLOW, 0})
    EXPECT_EQ(nodeTroubleOf(error), NodeTrouble::broken) << error;
  EXPECT_EQ(nodeTroubleOf(std::nullopt), NodeTrouble::broken);
}

}  // namespace
}  // namespace paddock
