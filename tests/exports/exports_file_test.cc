// The exports file on a real file system.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include "exports/nfs_export_parser.h"
#include "platform/linux/files/linux_text_files.h"
#include "platform/services.h"
#include "support/exports_parser_test_support.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

class ExportsFileOnDisk : public ExportsServices {
 protected:
  ExportsFileOnDisk() : guard_(servicesOn(&files_)) {}

  std::vector<std::string> keptFiles() const {
    std::vector<std::string> texts;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      const std::string name = entry.path().filename();
      if (name.starts_with("exports.replaced-")) texts.push_back(readWholeFile(entry.path()));
    }
    return texts;
  }
  std::string file() const { return folder_.path("exports"); }
  std::size_t objectCount() const {
    const std::filesystem::directory_iterator entries(folder_.path());
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
  }

  TestFolder folder_;
  LinuxTextFiles files_;
  ServicesGuard guard_;
};

TEST_F(ExportsFileOnDisk, ReplacementPreservesModeAndKeepsOriginalBeside) {
  writeWholeFile(file(), "# mine\n");
  ASSERT_EQ(::chmod(file().c_str(), 0640), 0);
  const auto parser = NFSExportParser::parserWithFile(file());
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(readWholeFile(file()), kBegin + "/srv/a *(ro)\n" + kEnd + "# mine\n");
  EXPECT_EQ(readWholeFile(file() + ".before-paddock"), "# mine\n");
  struct stat status {};
  ASSERT_EQ(::stat(file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
  EXPECT_EQ(objectCount(), 2U);
}

TEST_F(ExportsFileOnDisk, WritingTheSameLeavesTheFileUntouched) {
  writeWholeFile(file(), kBegin + "/srv/a *(ro)\n" + kEnd);
  struct stat before {};
  ASSERT_EQ(::stat(file().c_str(), &before), 0);
  EXPECT_TRUE(NFSExportParser::parserWithFile(file())->writeFile());
  struct stat after {};
  ASSERT_EQ(::stat(file().c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(objectCount(), 1U);
}

TEST_F(ExportsFileOnDisk, SymlinkStaysAndTargetIsReplaced) {
  std::filesystem::create_directory(folder_.path("shared"));
  writeWholeFile(folder_.path("shared/real"), "# mine\n");
  std::filesystem::create_symlink("shared/real", file());
  const auto parser = NFSExportParser::parserWithFile(file());
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_TRUE(parser->writeFile());
  EXPECT_TRUE(std::filesystem::is_symlink(file()));
  EXPECT_EQ(readWholeFile(folder_.path("shared/real")),
            kBegin + "/srv/a *(ro)\n" + kEnd + "# mine\n");
  EXPECT_EQ(readWholeFile(file() + ".before-paddock"), "# mine\n");
}

TEST_F(ExportsFileOnDisk, ReadOnlyFileSystemIsLeftUnchanged) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  writeWholeFile(file(), "# mine\n");
  runInOwnMounts([&] {
    bindMount(folder_.path(), folder_.path());
    ASSERT_EQ(::mount("", folder_.path().c_str(), "", MS_REMOUNT | MS_BIND | MS_RDONLY, ""), 0);
    const auto parser = NFSExportParser::parserWithFile(file());
    parser->addOrReplaceExport(exportTo("/srv/a"));
    EXPECT_FALSE(parser->writeFile());
    EXPECT_EQ(readWholeFile(file()), "# mine\n");
    EXPECT_EQ(objectCount(), 1U);
  });
}

TEST_F(ExportsFileOnDisk, RootReplacesReadOnlyFilePreservingMode) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root writes read-only files";
  writeWholeFile(file(), "# mine\n");
  ASSERT_EQ(::chmod(file().c_str(), 0444), 0);
  const auto parser = NFSExportParser::parserWithFile(file());
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_TRUE(parser->writeFile());
  struct stat status {};
  ASSERT_EQ(::stat(file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0444U);
}

TEST_F(ExportsFileOnDisk, FullDiskLeavesOnlyOldFile) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    mountTmpfs(folder_.path(), "64k");
    writeWholeFile(file(), "# mine\n");
    writeWholeFile(folder_.path("exports.before-paddock"), "");
    const auto parser = NFSExportParser::parserWithFile(file());
    for (int number = 0; number < 5000; ++number) {
      parser->addOrReplaceExport(exportTo("/srv/share-" + std::to_string(number)));
    }
    EXPECT_FALSE(parser->writeFile());
    EXPECT_EQ(readWholeFile(file()), "# mine\n");
    EXPECT_EQ(objectCount(), 2U);
    EXPECT_EQ(parser->exportCount(), 5000U);
  });
}

TEST_F(ExportsFileOnDisk, MissingRoomForCopyLeavesFileUntouched) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    mountTmpfs(folder_.path(), "64k");
    const std::string large = "# " + std::string(40'000, 'x') + "\n";
    writeWholeFile(file(), large);
    const auto parser = NFSExportParser::parserWithFile(file());
    parser->addOrReplaceExport(exportTo("/srv/a"));
    EXPECT_FALSE(parser->writeFile());
    EXPECT_EQ(readWholeFile(file()), large);
    EXPECT_EQ(objectCount(), 1U);
  });
}

ino_t inodeOf(const std::string& file) {
  struct stat status {};
  EXPECT_EQ(::stat(file.c_str(), &status), 0) << "the file is always there";
  return status.st_ino;
}

// Writes the two texts in turn until it is killed.
[[noreturn]] void writeForever(const std::string& file) {
  const auto parser = NFSExportParser::parserWithFile(file);
  for (bool add = true;; add = !add) {
    for (int number = 0; number < 200; ++number) {
      const std::string path = "/srv/share-" + std::to_string(number);
      if (add) {
        parser->addOrReplaceExport(exportTo(path));
      } else {
        parser->removeExportWithPath(path);
      }
    }
    parser->writeFile();
  }
}

TEST_F(ExportsFileOnDisk, KillDuringWriteLeavesCompleteFile) {
  const std::string without = "# mine\n";
  writeWholeFile(file(), without);
  const auto parser = NFSExportParser::parserWithFile(file());
  for (int number = 0; number < 200; ++number) {
    parser->addOrReplaceExport(exportTo("/srv/share-" + std::to_string(number)));
  }
  ASSERT_TRUE(parser->writeFile());
  const std::string with = readWholeFile(file());
  for (int round = 0; round < 60; ++round) {
    const ino_t before = inodeOf(file());
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) writeForever(file());
    // It is killed some time after it was seen to write.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    bool changed = false;
    while (!changed && std::chrono::steady_clock::now() < deadline) {
      changed = inodeOf(file()) != before;
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    EXPECT_TRUE(changed) << "the child never got to writing";
    std::this_thread::sleep_for(std::chrono::microseconds(round * 150));
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    const std::string found = readWholeFile(file());
    ASSERT_TRUE(found == with || found == without) << found.size() << " bytes";
  }
}

TEST_F(ExportsFileOnDisk, SameLengthEditInSameInstantIsDetected) {
  writeWholeFile(file(), "# one\n");
  const auto parser = NFSExportParser::parserWithFile(file());
  for (int round = 0; round < 200; ++round) {
    const std::string line = round % 2 == 0 ? "# two\n" : "# one\n";
    // In place: the inode, the size and often the times are those of before.
    writeWholeFile(file(), line);
    EXPECT_TRUE(parser->readFileIfChanged());
    ASSERT_EQ(parser->description(), "(\n    " + line + ")");
  }
}

TEST_F(ExportsFileOnDisk, LateWriteToReplacedFileIsKept) {
  writeWholeFile(file(), "# mine\n");
  std::ofstream editor(file(), std::ios::app);
  const auto parser = NFSExportParser::parserWithFile(file());
  parser->addOrReplaceExport(exportTo("/srv/a"));
  ASSERT_TRUE(parser->writeFileKeepingOthersChanges());
  editor << "/by/hand *(ro)\n" << std::flush;
  ASSERT_EQ(keptFiles().size(), 1U);
  EXPECT_EQ(keptFiles().front(), "# mine\n/by/hand *(ro)\n");
}

// Appends lines as "echo LINE >> FILE" does, and replaces the file as an editor does.
[[noreturn]] void editByHand(const std::string& file, int lines) {
  for (int line = 0; line < lines; ++line) {
    const std::string text = "/by/hand-" + std::to_string(line) + " *(ro)\n";
    if (line % 2 == 0) {
      std::ofstream(file, std::ios::app) << text << std::flush;
    } else {
      writeWholeFile(file + ".edited", readWholeFile(file) + text);
      std::filesystem::rename(file + ".edited", file);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  ::_exit(0);
}

TEST_F(ExportsFileOnDisk, ConcurrentEditorsLinesStayInOrBesideFile) {
  constexpr int kLines = 100;
  writeWholeFile(file(), "# mine\n");
  const auto parser = NFSExportParser::parserWithFile(file());
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) editByHand(file(), kLines);
  std::vector<std::string> all;
  for (bool add = true; ::waitpid(child, nullptr, WNOHANG) == 0; add = !add) {
    if (add) {
      parser->addOrReplaceExport(exportTo("/srv/a"));
    } else {
      parser->removeExportWithPath("/srv/a");
    }
    EXPECT_TRUE(parser->writeFileKeepingOthersChanges());
    // Before more than ten are kept.
    for (const std::string& text : keptFiles()) all.push_back(text);
    clock_.advance(std::chrono::seconds(1));
  }
  for (const std::string& text : keptFiles()) all.push_back(text);
  all.push_back(readWholeFile(file()));
  for (int line = 0; line < kLines; ++line) {
    const std::string text = "/by/hand-" + std::to_string(line) + " *(ro)\n";
    const bool found = std::any_of(all.begin(), all.end(), [&text](const std::string& file) {
      return file.find(text) != std::string::npos;
    });
    // An editor that read the file before our write replaces it with what it read; a line of its
    // own is in that.
    EXPECT_TRUE(found) << text;
  }
}

TEST_F(ExportsFileOnDisk, TenThousandExportsAreReplacedWithoutRescanning) {
  std::string text = "# mine\n" + kBegin;
  for (int number = 0; number < 10'000; ++number) {
    text += "/srv/share-" + std::to_string(number) + " *(ro)\n";
  }
  writeWholeFile(file(), text + kEnd);
  const auto parser = NFSExportParser::parserWithFile(file());
  ASSERT_EQ(parser->exportCount(), 10'000U);
  for (int number = 0; number < 10'000; ++number) {
    parser->addOrReplaceExport(exportTo("/srv/share-" + std::to_string(number)));
  }
  EXPECT_EQ(parser->exportCount(), 10'000U);
  EXPECT_TRUE(parser->writeFile());
  const std::string written = readWholeFile(file());
  EXPECT_EQ(written.find("# mine\n" + kBegin + "/srv/share-9999 *(ro)\n/srv/share-9998"), 0U);
}

}  // namespace
}  // namespace paddock
