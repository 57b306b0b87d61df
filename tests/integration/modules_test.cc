// Plug-ins that cannot be used are named in the log, and the others are operational.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "integration/running_daemon.h"

namespace paddock::testing {
namespace {

using ::testing::HasSubstr;

struct Broken {
  const char* name;
  const char* reason;
};

class BrokenModule : public ::testing::TestWithParam<Broken> {};

TEST_P(BrokenModule, IsRefusedByNameWhileOthersLoad) {
  const DaemonTree tree;
  tree.addPlugin(GetParam().name);
  RunningDaemon daemon(tree);
  ASSERT_TRUE(daemon.running()) << daemon.log();
  const std::string refusal = std::string("plug-in ") + GetParam().name + " refused: ";
  EXPECT_THAT(daemon.log(), HasSubstr(refusal));
  EXPECT_THAT(daemon.log().substr(daemon.log().find(refusal)), HasSubstr(GetParam().reason));
  EXPECT_EQ(daemon.get("/v1/health").dictionary().integer("plugins"), 2);
  EXPECT_EQ(daemon.post("/v1/test_good/echo", "{}").status, 200);
  EXPECT_EQ(daemon.post(std::string("/v1/") + GetParam().name + "/getState", "{}").status, 404);
  EXPECT_EQ(daemon.stop(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Every, BrokenModule,
    ::testing::Values(Broken{"test_no_entry_point", "paddock_plugin_interface_version"},
                      Broken{"test_no_create", "paddock_plugin_create"},
                      Broken{"test_wrong_version", "interface version 99"},
                      Broken{"test_throwing_constructor", "constructor on purpose"},
                      Broken{"test_throwing_init", "not a std::exception"},
                      Broken{"test_throwing_operations", "operations on purpose"},
                      Broken{"test_null_handler", "cannot be created"},
                      Broken{"test_missing_library", "libtest_absent.so"}),
    [](const auto& instance) { return std::string(instance.param.name); });

class Modules : public ::testing::Test {
 protected:
  std::string object(const std::string& name) const {
    return tree_.path("/usr/share/paddockd/bundles/" + name + ".bundle/Contents/" + name + ".so");
  }
  DaemonTree tree_;
};

TEST_F(Modules, ABundleWithoutItsSharedObjectIsRefused) {
  std::filesystem::remove(object("test_sibling"));
  RunningDaemon daemon(tree_);
  EXPECT_THAT(daemon.log(), HasSubstr("plug-in test_sibling refused: "));
  EXPECT_EQ(daemon.post("/v1/test_good/echo", "{}").status, 200);
}

TEST_F(Modules, ASharedObjectThatIsNoneIsRefused) {
  tree_.write("/usr/share/paddockd/bundles/junk.bundle/Contents/junk.so", "not an object");
  RunningDaemon daemon(tree_);
  EXPECT_THAT(daemon.log(), HasSubstr("plug-in junk refused: "));
}

TEST_F(Modules, OneWhoseDescriptionCannotBeReadWorks) {
  tree_.addPlugin("test_unreadable_description");
  RunningDaemon daemon(tree_);
  EXPECT_THAT(daemon.log(), HasSubstr("the description of plug-in test_unreadable_description is "
                                      "left out: line 2, column 1: "));
  EXPECT_EQ(daemon.post("/v1/test_unreadable_description/getState", "{}").status, 200);
  const Response document = daemon.get("/v1/openapi.json");
  EXPECT_EQ(document.status, 200);
  const Dictionary described = document.dictionary();
  const Dictionary* paths = described.dictionary("paths");
  ASSERT_NE(paths, nullptr);
  for (const char* path : {"/v1/test_unreadable_description/getState", "/v1/test_good/echo"})
    EXPECT_TRUE(paths->contains(path)) << path;
}

TEST_F(Modules, SharedObjectWritableByOthersIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a plug-in away needs root";
  std::filesystem::permissions(object("test_good"), std::filesystem::perms::others_write,
                               std::filesystem::perm_options::add);
  ASSERT_EQ(::chown(object("test_sibling").c_str(), 65534, 65534), 0);
  RunningDaemon daemon(tree_);
  EXPECT_THAT(daemon.log(), HasSubstr("plug-in test_good refused: others can change " +
                                      object("test_good") + " (mode "));
  EXPECT_THAT(daemon.log(), HasSubstr("plug-in test_sibling refused: " + object("test_sibling") +
                                      " belongs to user 65534, not to root"));
  EXPECT_EQ(daemon.get("/v1/health").dictionary().integer("plugins"), 0);
  // Who asks before the start hears the same.
  const EndedRun check = runToEnd(tree_, {"--root", tree_.root(), "--check-config"});
  EXPECT_EQ(check.status, 1);
  const auto lines = linesOf(check.output);
  ASSERT_EQ(lines.size(), 2U) << check.output;
  for (const std::string& line : lines) EXPECT_THAT(daemon.log(), HasSubstr("<3>" + line + "\n"));
}

TEST_F(Modules, BundleFolderWritableByOthersIsRefused) {
  std::filesystem::permissions(std::filesystem::path(object("test_good")).parent_path(),
                               std::filesystem::perms::all);
  RunningDaemon daemon(tree_);
  EXPECT_THAT(daemon.log(), HasSubstr("plug-in test_good refused: "));
}

TEST_F(Modules, WithoutAnyTheDaemonStillAnswers) {
  std::filesystem::remove_all(tree_.path("/usr/share/paddockd"));
  RunningDaemon daemon(tree_);
  ASSERT_TRUE(daemon.running()) << daemon.log();
  EXPECT_EQ(daemon.get("/v1/health").dictionary().integer("plugins"), 0);
}

}  // namespace
}  // namespace paddock::testing
