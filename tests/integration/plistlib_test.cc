// Property lists as Python's plistlib writes them, which always name a document type: bodies of
// requests, status files and saved contexts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "integration/sharing_daemon.h"
#include "support/run_to_end.h"
#include "support/temporary_folder.h"
#include "wire/property_list.h"

namespace paddock::testing {
namespace {

using ::testing::HasSubstr;

constexpr const char* kHeaders =
    "Content-Type: application/x-plist\r\nAccept: application/x-plist\r\n";
constexpr const char* kContext = "/var/lib/paddock/context/paddock_sharing.plist";

// Writes a value, in Python's notation, into a file.
int writeWithPlistlib(const std::string& file, const std::string& value) {
  const std::string program =
      "import plistlib, sys; plistlib.dump(" + value + ", open(sys.argv[1], 'wb'))";
  return runProgram({"/usr/bin/python3", "-c", program, file}).status;
}

class PlistlibClient : public ::testing::Test {
 protected:
  std::string written(const std::string& name, const std::string& value) const {
    const std::string file = folder_.path(name);
    EXPECT_EQ(writeWithPlistlib(file, value), 0);
    const std::string text = readWholeFile(file);
    EXPECT_THAT(text, HasSubstr("<!DOCTYPE plist PUBLIC"));
    return text;
  }

  TestFolder folder_;
  SharingDaemon daemon_;
};

TEST_F(PlistlibClient, StatusFileIsReadForPlistlibBody) {
  written("status", "{'status': 'running', 'itemsDone': 5}");
  const std::string body = written(
      "body", "{'copyPrivsPid': 1, 'copyPrivsStatusFile': '" + folder_.path("status") + "'}");
  const Response reply = daemon_.post("statusCopyPrivs", body, kHeaders);
  ASSERT_EQ(reply.status, 200) << reply.body;
  std::string error;
  EXPECT_EQ(wire::parsePropertyList(reply.body, error),
            Value(Dictionary{{"status", Dictionary{{"status", "running"}, {"itemsDone", 5}}}}));
}

TEST_F(PlistlibClient, ASavedContextIsReadBack) {
  daemon_.stop();
  daemon_.tree().write(kContext, written("context", "{'copyPrivsPid': 7, 'other': [True, 'x']}"));
  daemon_.restart();
  EXPECT_THAT(daemon_.log(), ::testing::Not(HasSubstr("damaged")));
  // Which retires the run, so that the context is saved again.
  daemon_.ask("statusCopyPrivs", {{"copyPrivsPid", 7}, {"copyPrivsStatusFile", "/nowhere"}});
  std::string error;
  const auto saved = wire::parsePropertyList(daemon_.tree().read(kContext), error);
  EXPECT_EQ(saved, Value(Dictionary{{"other", Array{true, "x"}}})) << error;
}

}  // namespace
}  // namespace paddock::testing
