#include "paddock_access/access_handler.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <future>

#include "base/mutex.h"
#include "platform/testing/recording_host_services.h"
#include "support/plugin_host.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* kFolder = "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/";
using Words = std::vector<std::string>;

class AccessHandler : public ::testing::Test {
 protected:
  AccessHandler() {
    auto runner = std::make_unique<RecordingProgramRunner>();
    runner_ = runner.get();
    handler_ = std::make_unique<AccessRequestHandler>(std::move(runner));
  }

  Dictionary call(const char* operation, const Dictionary& request) {
    return handler_->performOperation(operation, request);
  }
  // The arguments of the one program that ran.
  Words argumentsOf(const char* program) const {
    EXPECT_EQ(runner_->runs().size(), 1U);
    EXPECT_EQ(runner_->runs().front().path, std::string(kFolder) + program);
    return runner_->runs().front().arguments;
  }
  std::string errorOf(const char* operation, const Dictionary& request) {
    const Dictionary reply = call(operation, request);
    EXPECT_EQ(reply.size(), 1U);
    return reply.string("error") != nullptr ? *reply.string("error") : "";
  }

  PluginHost host_;
  RecordingProgramRunner* runner_ = nullptr;
  std::unique_ptr<AccessRequestHandler> handler_;
};

TEST_F(AccessHandler, ViewersMayAskEverythingExceptPropagationPreview) {
  std::vector<std::string> reading;
  for (const auto& operation : handler_->operations()) {
    if (!operation.changes) reading.push_back(operation.name);
  }
  EXPECT_THAT(reading, ElementsAre("effective", "answer", "explain", "who"));
  EXPECT_EQ(handler_->operations().size(), 5U);
}

TEST_F(AccessHandler, TheProgramGetsPathAndUser) {
  call("effective", {{"path", "/srv/a b"}, {"uid", 1000}});
  EXPECT_EQ(argumentsOf("effectiveprivs"), (Words{"-p", "/srv/a b", "-u", "1000"}));
}

TEST_F(AccessHandler, TheProgramIsAskedWhyAndForJson) {
  call("explain", {{"path", "/srv"}, {"uid", "0"}, {"json", true}});
  EXPECT_EQ(argumentsOf("effectiveprivs"), (Words{"--json", "--explain", "-p", "/srv", "-u", "0"}));
}

TEST_F(AccessHandler, ProgramIsAskedWhoForSinglePath) {
  call("who", {{"path", "/srv"}, {"json", false}});
  EXPECT_EQ(argumentsOf("effectiveprivs"), (Words{"--who", "-p", "/srv"}));
}

TEST_F(AccessHandler, ProgramOutputIsReturnedUnchanged) {
  runner_->setOutcomeOfOthers({0, "output\n", "complaint\n", 4});
  EXPECT_EQ(call("who", {{"path", "/srv"}}),
            (Dictionary{{"status", 4}, {"output", "output\n"}, {"errors", "complaint\n"}}));
}

TEST_F(AccessHandler, UnusableRequestsRunNothing) {
  EXPECT_EQ(errorOf("who", {}), "\"path\" must be an absolute path");
  EXPECT_EQ(errorOf("who", {{"path", "srv"}}), "\"path\" must be an absolute path");
  EXPECT_EQ(errorOf("who", {{"path", std::string("/a\0b", 4)}}),
            "\"path\" must be an absolute path");
  for (const Value& uid : {Value(), Value(-1), Value(4294967296L), Value("anna"), Value(Array{})}) {
    EXPECT_THAT(errorOf("effective", {{"path", "/srv"}, {"uid", uid}}), HasSubstr("\"uid\""));
  }
  EXPECT_THAT(errorOf("previewPropagation", {{"path", "/srv"}}), HasSubstr("\"mask\""));
  EXPECT_TRUE(runner_->runs().empty());
  EXPECT_THROW(call("whom", {{"path", "/srv"}}), std::invalid_argument);
}

TEST_F(AccessHandler, AProgramThatCannotAnswerIsSaid) {
  runner_->setOutcomeOfOthers({ENOENT, "", "", 0});
  EXPECT_EQ(errorOf("who", {{"path", "/srv"}}),
            "effectiveprivs cannot be run: No such file or directory");
  runner_->setOutcomeOfOthers({ETIMEDOUT, "half", "", 137});
  EXPECT_THAT(errorOf("who", {{"path", "/srv"}}), HasSubstr("took too long"));
}

TEST_F(AccessHandler, PreviewReturnsStatusFileAndRemovesIt) {
  runner_->setProgram(std::string(kFolder) + "copyprivs", [](const Words& arguments) {
    EXPECT_EQ(arguments.size(), 7U);
    EXPECT_EQ(Words(arguments.begin(), arguments.end() - 1),
              (Words{"-n", "-p", "/srv", "-f", "34", "-s"}));
    writeWholeFile(arguments.back(), "<plist/>");
    return ProgramOutcome{0, "", "one object failed\n", 1};
  });
  EXPECT_EQ(call("previewPropagation", {{"path", "/srv"}, {"mask", 34}}),
            (Dictionary{{"status", 1},
                        {"output", ""},
                        {"errors", "one object failed\n"},
                        {"report", "<plist/>"}}));
  EXPECT_TRUE(std::filesystem::is_empty(hostPath("/var/lib/paddock")));
}

TEST_F(AccessHandler, APreviewThatSaidNothingHasNoReport) {
  EXPECT_FALSE(call("previewPropagation", {{"path", "/srv"}, {"mask", 1}}).contains("report"));
}

TEST_F(AccessHandler, FifthConcurrentQuestionWaitsThenIsRefused) {
  Mutex mutex;
  ConditionVariable changed;
  int running = 0;
  bool go = false;
  // The runs are counted here: the double's own list is for one thread.
  class BlockingRunner final : public ProgramRunner {
   public:
    explicit BlockingRunner(std::function<void()> body) : body_(std::move(body)) {}
    ProgramOutcome run(const std::string&, const std::vector<std::string>&) override {
      body_();
      return {};
    }
    int start(const std::string&, const std::vector<std::string>&) override { return ENOSYS; }
    DetachedStart startDetached(const std::string&, const std::vector<std::string>&) override {
      return {ENOSYS, 0, 0};
    }
    bool exists(const std::string&) override { return true; }
    int probe(std::int64_t) override { return ESRCH; }

   private:
    std::function<void()> body_;
  };
  AccessRequestHandler handler(std::make_unique<BlockingRunner>([&] {
                                 MutexLock lock(mutex);
                                 ++running;
                                 changed.notify_all();
                                 while (!go) changed.wait(mutex);
                               }),
                               std::chrono::milliseconds(1));
  std::vector<std::future<Dictionary>> asked;
  const auto ask = [&handler] { return handler.performOperation("who", {{"path", "/srv"}}); };
  for (int count = 0; count < AccessRequestHandler::kPrograms; ++count)
    asked.push_back(std::async(std::launch::async, ask));
  {
    MutexLock lock(mutex);
    while (running != AccessRequestHandler::kPrograms) changed.wait(mutex);
  }
  EXPECT_THAT(*ask().string("error"), HasSubstr("too many"));
  {
    const MutexLock lock(mutex);
    go = true;
  }
  changed.notify_all();
  for (auto& one : asked) EXPECT_EQ(one.get().integer("status"), 0);
  EXPECT_EQ(ask().integer("status"), 0);
}

}  // namespace
}  // namespace paddock
