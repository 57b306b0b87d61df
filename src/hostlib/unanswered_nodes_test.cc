#include "paddock/unanswered_nodes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "paddock/sys_logger.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

TEST_F(UnansweredNodes, areMarkedUntilTheyAnswer) {
  EXPECT_THAT(unansweredNodes(), IsEmpty());
  noteAnswered("/LDAP/a");
  EXPECT_THAT(lines_, IsEmpty());
  noteUnanswered("/LDAP/b", "refused");
  noteUnanswered("/LDAP/a", "late");
  noteUnanswered("/LDAP/a", "gone");
  const auto nodes = unansweredNodes();
  ASSERT_EQ(nodes.size(), 2U);
  EXPECT_EQ(nodes[0].path + nodes[0].error, "/LDAP/agone");
  EXPECT_EQ(nodes[1].path + nodes[1].error, "/LDAP/brefused");
  noteAnswered("/LDAP/b");
  noteAnswered("/LDAP/b");
  ASSERT_EQ(unansweredNodes().size(), 1U);
  EXPECT_THAT(lines_,
              ElementsAre("4 the directory node /LDAP/b does not answer and is left out: refused",
                          "4 the directory node /LDAP/a does not answer and is left out: late",
                          "6 the directory node /LDAP/b answers again"));
}

TEST_F(UnansweredNodes, haveOneLineForEachRequest) {
  for (const char* request : {"r1", "r2", "r1"}) {
    const RequestIdScope scope(request);
    noteUnanswered("/LDAP/a", "gone");
    noteUnanswered("/LDAP/a", "gone");
  }
  EXPECT_EQ(lines_.size(), 2U);
}

}  // namespace
}  // namespace paddock
