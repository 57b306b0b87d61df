// What search indexing is tested on: stores, ACLs, volumes and a membership service in memory.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "platform/logger.h"
#include "platform/services.h"
#include "platform/testing/fake_volume_info.h"
#include "platform/testing/in_memory_acl.h"
#include "platform/testing/in_memory_file_tree.h"
#include "platform/testing/in_memory_membership.h"
#include "platform/testing/in_memory_metadata_stores.h"
#include "platform/testing/recording_host_services.h"
#include "support/acl_fixture.h"

namespace paddock {

class IndexingFixture : public AclFixture {
 protected:
  IndexingFixture() { tree.setFolder(kFolder); }
  ~IndexingFixture() override { EXPECT_EQ(acl.unreleased(), 0U); }

  // Installs the doubles anew, with this command.
  void setCommand(const std::vector<std::string>& command) {
    command_ = command;
    guard_.emplace(doubles());
  }
  Services doubles() {
    Services all;
    all.membership = &membership;
    all.volumeInfo = &volumes;
    all.logger = &logger;
    all.programRunner = &programs;
    all.acl = &acl;
    all.metadataStores = &stores;
    all.indexingCommand = command_;
    return all;
  }

  // Runs `work` while the `nth` call named `call` fails with `error`.
  template <typename Work>
  void failing(const std::string& call, const Work& work, int error = EIO, std::size_t nth = 1) {
    whileFailing(doubles(), call, nth, error, [&work] {
      work();
      return true;
    });
  }

  // What was logged is these texts, each as an error; they are forgotten then.
  void expectErrors(const std::vector<std::string>& texts) {
    std::vector<RecordingLogger::Line> expected;
    for (const std::string& text : texts) expected.push_back({kLogError, text});
    EXPECT_EQ(logger.lines(), expected);
    logger.clear();
  }

  static Guid guidOfUser(std::uint32_t uid) { return computedGuid({PrincipalType::user, uid}); }
  void store(const std::vector<acl::Entry>& entries) { tree.setAcl(kFolder, {.entries = entries}); }
  // The folder's ACL, an entry as "tag uid permissions flags".
  std::vector<std::string> entries(const std::string& path = kFolder) {
    std::vector<std::string> texts;
    const StoredAcl* stored = tree.acl(path);
    if (stored == nullptr) return {"(none)"};
    for (const acl::Entry& entry : stored->entries) {
      const auto principal = computedPrincipal(entry.qualifier.value_or(Guid{}));
      texts.push_back(std::to_string(entry.tag) + " " +
                      (principal ? std::to_string(principal->id) : "?") + " " +
                      std::to_string(entry.permset.permissions) + " " +
                      std::to_string(entry.flagset.flags));
    }
    return texts;
  }

  static constexpr const char* kFolder = "/srv/folder";
  // Allow, user 89, search and list, inherited and inheritable by files and folders.
  static constexpr const char* kLookwiseEntry = "1 89 10 112";

  InMemoryMembership membership;
  FakeVolumeInfo volumes;
  RecordingLogger logger;
  RecordingProgramRunner programs;
  InMemoryFileTree tree;
  InMemoryAcl acl{tree};
  InMemoryMetadataStores stores;

 private:
  std::vector<std::string> command_;
  std::optional<ServicesGuard> guard_{doubles()};
};

}  // namespace paddock
