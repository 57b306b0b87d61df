// Concurrent changes of the exports file, on a real file system, during its replacement.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <deque>
#include <functional>
#include <thread>

#include "exports/nfs_export_parser.h"
#include "platform/linux/files/linux_text_files.h"
#include "platform/services.h"
#include "platform/testing/fake_machine_information.h"
#include "platform/testing/recording_host_services.h"
#include "support/temporary_folder.h"

namespace {

using Steps = std::deque<std::function<void()>>;

// Each runs once, before the exchange of names with its number.
Steps& beforeExchanges() {
  static Steps steps;
  return steps;
}

std::function<void()>& beforeSync() {
  static std::function<void()> step;
  return step;
}

}  // namespace

// In the place of the C library's, for this program.
extern "C" int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                         unsigned flags) noexcept {
  if (!beforeExchanges().empty()) {
    const auto step = beforeExchanges().front();
    beforeExchanges().pop_front();
    if (step) step();
  }
  return static_cast<int>(::syscall(SYS_renameat2, fromFolder, from, toFolder, to, flags));
}

extern "C" int fsync(int file) {
  if (beforeSync()) std::exchange(beforeSync(), nullptr)();
  return static_cast<int>(::syscall(SYS_fsync, file));
}

namespace paddock {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kBlock = std::string(kBeginMarker) + "\n/srv/a *(ro)\n" + kEndMarker + "\n";

class ExportsInLastInstant : public testing::Test {
 protected:
  ExportsInLastInstant() : guard_(servicesOn()) { writeWholeFile(file(), "# mine\n"); }
  ~ExportsInLastInstant() override {
    EXPECT_THAT(beforeExchanges(), IsEmpty()) << "the exchange was never tried";
    beforeExchanges().clear();
    beforeSync() = nullptr;
  }

  Services servicesOn() {
    Services services;
    services.textFiles = &files_;
    services.logger = &logger_;
    services.clock = &clock_;
    return services;
  }
  std::string file() const { return folder_.path("exports"); }
  void replaceByHand(const std::string& text) const {
    writeWholeFile(folder_.path("edited"), text);
    std::filesystem::rename(folder_.path("edited"), file());
  }
  void share() {
    const auto parser = NFSExportParser::parserWithFile(file());
    const auto record = std::make_shared<NFSExportRecord>();
    record->setPath("/srv/a");
    record->setClients({{"*", {"ro"}}});
    parser->addOrReplaceExport(record);
    EXPECT_TRUE(parser->writeFileKeepingOthersChanges());
  }
  // What lies in the folder but for the file and the copy of what it was first.
  std::vector<std::string> others() const {
    std::vector<std::string> texts;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      const std::string name = entry.path().filename();
      if (name != "exports" && name != "exports.before-paddock")
        texts.push_back(readWholeFile(entry.path()));
    }
    return texts;
  }
  std::vector<std::string> logged() const {
    std::vector<std::string> texts;
    for (const auto& line : logger_.lines()) texts.push_back(line.text);
    return texts;
  }

  TestFolder folder_;
  RecordingLogger logger_;
  FakeClock clock_;
  LinuxTextFiles files_;
  ServicesGuard guard_;
};

TEST_F(ExportsInLastInstant, EditDuringSyncStays) {
  beforeSync() = [this] { replaceByHand("# mine\n/by/hand *(ro)\n"); };
  share();
  EXPECT_EQ(readWholeFile(file()), kBlock + "# mine\n/by/hand *(ro)\n");
  EXPECT_THAT(others(), IsEmpty());
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ExportsInLastInstant, AnEditJustBeforeTheExchangeStays) {
  beforeExchanges() = {[this] { replaceByHand("# mine\n/by/hand *(ro)\n"); }};
  share();
  EXPECT_EQ(readWholeFile(file()), kBlock + "# mine\n/by/hand *(ro)\n");
  EXPECT_THAT(others(), IsEmpty());
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ExportsInLastInstant, InPlaceEditJustBeforeExchangeStays) {
  beforeExchanges() = {[this] {
    std::ofstream(file(), std::ios::app) << "/by/hand *(ro)\n" << std::flush;
  }};
  share();
  EXPECT_EQ(readWholeFile(file()), kBlock + "# mine\n/by/hand *(ro)\n");
  EXPECT_THAT(others(), IsEmpty());
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ExportsInLastInstant, WriteThroughOpenDescriptorStays) {
  std::ofstream editor;
  beforeExchanges() = {[this, &editor] { editor.open(file(), std::ios::app); },
                       [&editor] {
                         editor << "/by/hand *(ro)\n" << std::flush;
                         editor.close();
                       }};
  share();
  EXPECT_EQ(readWholeFile(file()), kBlock + "# mine\n/by/hand *(ro)\n");
  EXPECT_THAT(others(), IsEmpty());
}

TEST_F(ExportsInLastInstant, LaterEditStaysAndEarlierIsKeptBeside) {
  beforeExchanges() = {[this] { replaceByHand("# mine\n/by/hand *(ro)\n"); },
                       [this] { replaceByHand("# mine\n/by/another *(ro)\n"); }};
  share();
  EXPECT_EQ(readWholeFile(file()), kBlock + "# mine\n/by/another *(ro)\n");
  EXPECT_THAT(others(), ElementsAre("# mine\n/by/hand *(ro)\n"));
  EXPECT_THAT(logged(), testing::Contains(testing::HasSubstr("lost the line: /by/hand *(ro)")));
}

TEST_F(ExportsInLastInstant, LineAppendedToWithdrawnFileIsKept) {
  beforeExchanges() = {
      [this] { replaceByHand("# mine\n/by/hand *(ro)\n"); },
      [this] { std::ofstream(file(), std::ios::app) << "/by/another *(ro)\n"
                                                    << std::flush; }};
  share();
  EXPECT_EQ(readWholeFile(file()), kBlock + "# mine\n/by/hand *(ro)\n");
  EXPECT_THAT(others(), ElementsAre(kBlock + "# mine\n/by/another *(ro)\n"));
  EXPECT_THAT(logged(), testing::Contains(testing::HasSubstr("lost the line: /by/another *(ro)")));
}

TEST_F(ExportsInLastInstant, AFileThatIsMadeMeanwhileStays) {
  std::filesystem::remove(file());
  beforeSync() = [this] { replaceByHand("/by/hand *(ro)\n"); };
  share();
  EXPECT_EQ(readWholeFile(file()), kBlock + "/by/hand *(ro)\n");
  EXPECT_THAT(others(), IsEmpty());
}

// Each edit waits, as a person would, until what it is based on is in its place.
TEST_F(ExportsInLastInstant, ChangingSharesLosesNoEditorsLine) {
  constexpr int kEdits = 30;
  std::thread editor([this] {
    for (int edit = 0; edit < kEdits; ++edit) {
      replaceByHand(readWholeFile(file()) + "/by/hand-" + std::to_string(edit) + " *(ro)\n");
      std::this_thread::sleep_for(std::chrono::milliseconds(40));
    }
  });
  const auto parser = NFSExportParser::parserWithFile(file());
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(40 * kEdits);
  for (int change = 0; std::chrono::steady_clock::now() < until; ++change) {
    const auto record = std::make_shared<NFSExportRecord>();
    record->setPath("/srv/a");
    record->setClients({{"192.0.2." + std::to_string(change % 200 + 1), {"ro"}}});
    parser->addOrReplaceExport(record);
    EXPECT_TRUE(parser->writeFileKeepingOthersChanges());
  }
  editor.join();
  const std::string text = readWholeFile(file());
  for (int edit = 0; edit < kEdits; ++edit) {
    const std::string line = "/by/hand-" + std::to_string(edit) + " *(ro)\n";
    EXPECT_NE(text.find(line), std::string::npos) << line;
  }
  EXPECT_THAT(others(), IsEmpty());
}

}  // namespace
}  // namespace paddock
