// What status_files.h promises.
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

#include "platform/linux/files/linux_status_files.h"
#include "platform/testing/in_memory_status_files.h"
#include "support/temporary_folder.h"

namespace paddock::contract {
namespace {

class StatusFilesSubject {
 public:
  virtual ~StatusFilesSubject() = default;
  virtual StatusFiles& files() = 0;
  virtual std::string pathTemplate() const = 0;
  // What a new file's path begins with.
  virtual std::string place() const = 0;
  // As a program writes its status, {"items": 3}; and as one that writes something else.
  virtual void writeStatus(const std::string& path) = 0;
  virtual void writeSomethingElse(const std::string& path) = 0;
};

class InMemorySubject final : public StatusFilesSubject {
 public:
  StatusFiles& files() override { return files_; }
  std::string pathTemplate() const override { return "/tmp/Status.XXXXXX"; }
  std::string place() const override { return "/tmp/Status."; }
  void writeStatus(const std::string& path) override {
    files_.write(path, Dictionary{{"items", 3}});
  }
  void writeSomethingElse(const std::string& path) override { files_.write(path, std::nullopt); }

 private:
  InMemoryStatusFiles files_;
};

class LinuxSubject final : public StatusFilesSubject {
 public:
  StatusFiles& files() override { return files_; }
  std::string pathTemplate() const override { return "/tmp/Status.XXXXXX"; }
  std::string place() const override { return root_.path("tmp/Status."); }
  void writeStatus(const std::string& path) override { writeWholeFile(path, "status"); }
  void writeSomethingElse(const std::string& path) override { writeWholeFile(path, "else"); }

 private:
  static std::optional<Dictionary> read(std::string_view text) {
    if (text != "status") return std::nullopt;
    return Dictionary{{"items", 3}};
  }

  TestFolder root_;
  LinuxStatusFiles files_{root_.path(), &read};
};

struct Kind {
  const char* name;
  std::unique_ptr<StatusFilesSubject> (*make)();
};
const Kind kKinds[] = {
    {"InMemory", [] { return std::unique_ptr<StatusFilesSubject>(new InMemorySubject); }},
    {"Linux", [] { return std::unique_ptr<StatusFilesSubject>(new LinuxSubject); }},
};

class StatusFilesContract : public ::testing::TestWithParam<Kind> {
 protected:
  std::string create() {
    std::string path = "old";
    EXPECT_EQ(files_.create(subject_->pathTemplate(), path), 0);
    return path;
  }

  std::unique_ptr<StatusFilesSubject> subject_ = GetParam().make();
  StatusFiles& files_ = subject_->files();
};
INSTANTIATE_TEST_SUITE_P(StatusFiles, StatusFilesContract, ::testing::ValuesIn(kKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(StatusFilesContract, EachNewFileHasUniquePathBelowRoot) {
  const std::string first = create();
  const std::string second = create();
  EXPECT_NE(first, second);
  for (const std::string& path : {first, second}) {
    EXPECT_TRUE(path.starts_with(subject_->place())) << path;
    EXPECT_EQ(path.size(), subject_->place().size() + 6);
    EXPECT_FALSE(path.ends_with("XXXXXX"));
    EXPECT_TRUE(files_.exists(path));
  }
}

TEST_P(StatusFilesContract, ANewFileHoldsNoDictionaryAndStays) {
  const std::string path = create();
  EXPECT_EQ(files_.read(path), std::nullopt);
  EXPECT_EQ(files_.remove(path), EPERM);
  EXPECT_TRUE(files_.exists(path));
}

TEST_P(StatusFilesContract, ProgramsStatusIsReadUntilRemoved) {
  const std::string path = create();
  subject_->writeStatus(path);
  EXPECT_EQ(files_.read(path), (Dictionary{{"items", 3}}));
  EXPECT_EQ(files_.read(path), (Dictionary{{"items", 3}}));
  EXPECT_EQ(files_.remove(path), 0);
  EXPECT_FALSE(files_.exists(path));
}

TEST_P(StatusFilesContract, FileWithOtherContentsIsLeftUntouched) {
  const std::string path = create();
  subject_->writeSomethingElse(path);
  EXPECT_EQ(files_.read(path), std::nullopt);
  EXPECT_EQ(files_.remove(path), EPERM);
  EXPECT_TRUE(files_.exists(path));
}

TEST_P(StatusFilesContract, MissingFileIsNeitherReadNorRemoved) {
  const std::string path = create();
  subject_->writeStatus(path);
  EXPECT_EQ(files_.remove(path), 0);
  for (const std::string& missing : {path, path + "/below", std::string()}) {
    EXPECT_FALSE(files_.exists(missing));
    EXPECT_EQ(files_.read(missing), std::nullopt);
    EXPECT_EQ(files_.remove(missing), EPERM);
  }
}

TEST_P(StatusFilesContract, ANewFileCanBeTakenBack) {
  const std::string path = create();
  EXPECT_EQ(files_.discard(path), 0);
  EXPECT_FALSE(files_.exists(path));
  EXPECT_EQ(files_.discard(path), EPERM);
}

TEST_P(StatusFilesContract, FileHoldingStatusIsNotTakenBack) {
  const std::string path = create();
  subject_->writeStatus(path);
  EXPECT_EQ(files_.discard(path), EPERM);
  EXPECT_TRUE(files_.exists(path));
}

}  // namespace
}  // namespace paddock::contract
