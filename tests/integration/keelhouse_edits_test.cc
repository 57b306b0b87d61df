// Two at the same time, and taking back what was shown: `keelhouse` and the running daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>
#include <thread>

#include "integration/keelhouse_fixture.h"
#include "support/nt_acl_samples.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* kAttribute = "security.NTACL";

class KeelhouseEdits : public KeelhouseFixture {
 protected:
  void SetUp() override {
    KeelhouseFixture::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    path_ = makeFolder("shared");
    ASSERT_EQ(::chmod(path_.c_str(), 0755), 0);
    if (::setxattr(path_.c_str(), kAttribute, "probe", 5, 0) != 0)
      GTEST_SKIP() << kAttribute << " cannot be written here: " << std::strerror(errno);
    ::removexattr(path_.c_str(), kAttribute);
  }

  std::string attribute(const std::string& path) const {
    std::string value(65536, '\0');
    const ssize_t size = ::getxattr(path.c_str(), kAttribute, value.data(), value.size());
    value.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return value;
  }

  Dictionary shown(const std::string& command, const std::string& path) const {
    std::string error;
    auto value = wire::parseJson(done({command, "show", path, "--json"}), error);
    EXPECT_TRUE(value && value->dictionary() != nullptr) << error;
    return value && value->dictionary() != nullptr ? *value->dictionary() : Dictionary();
  }
  std::size_t entriesShown() const {
    const Dictionary document = shown("acl", path_);
    const Array* acl = document.array("acl");
    return acl != nullptr ? acl->size() : 0;
  }

  // Each command by a thread of its own.
  std::vector<EndedProgram> together(const std::vector<std::vector<std::string>>& commands) const {
    std::vector<EndedProgram> ended(commands.size());
    std::vector<std::thread> threads;
    for (std::size_t at = 0; at < commands.size(); ++at) {
      threads.emplace_back([this, &ended, &commands, at] { ended[at] = keelhouse(commands[at]); });
    }
    for (std::thread& thread : threads) thread.join();
    return ended;
  }

  std::string folderBody(const std::string& configuration = {}) const {
    const std::string arguments = R"("optionalArguments":{"path":")" + path_ + "\"}";
    return configuration.empty() ? "{" + arguments + "}"
                                 : "{" + arguments + R"(,"configuration":)" + configuration + "}";
  }
  Response readSettings() const {
    return daemon_->post("/v1/paddock_sharing/readSettings", folderBody());
  }
  Response writeMode(const std::string& mode, const std::string& headers) const {
    return daemon_->post("/v1/paddock_sharing/writeSettings",
                         folderBody(R"({"fileAccessPrivs":{"privs":")" + mode + "\"}}"), headers);
  }
  mode_t mode() const {
    struct stat status {};
    EXPECT_EQ(::stat(path_.c_str(), &status), 0);
    return status.st_mode & 07777U;
  }

  std::string path_;
};

TEST_F(KeelhouseEdits, AddsAtTheSameTimeLoseNothing) {
  constexpr std::size_t kAdds = 24;
  std::vector<std::vector<std::string>> commands;
  for (std::size_t at = 0; at < kAdds; ++at) {
    commands.push_back(
        {"acl", "add", path_, "allow", "user:" + std::to_string(2147400000 + at), "read"});
  }
  for (const EndedProgram& ended : together(commands)) EXPECT_EQ(ended.status, 0) << ended.error;
  EXPECT_EQ(entriesShown(), kAdds);
}

TEST_F(KeelhouseEdits, ConcurrentAddsAndRemovesAllTakeEffect) {
  constexpr std::size_t kEach = 8;
  std::vector<std::string> first{"acl", "set", path_};
  std::vector<std::vector<std::string>> commands;
  for (std::size_t at = 0; at < kEach; ++at) {
    const std::string old = "user:" + std::to_string(2147400000 + at);
    first.insert(first.end(), {"allow", old, "read"});
    commands.push_back({"acl", "remove", path_, old});
    commands.push_back({"acl", "add", path_, "--first", "deny",
                        "user:" + std::to_string(2147410000 + at), "write"});
    commands.push_back({"privs", "set", path_, "--mode", "750"});
  }
  done(first);
  for (const EndedProgram& ended : together(commands)) EXPECT_EQ(ended.status, 0) << ended.error;
  const Dictionary document = shown("acl", path_);
  ASSERT_EQ(document.array("acl")->size(), kEach);
  for (const Value& entry : *document.array("acl")) {
    EXPECT_EQ(entry.dictionary()->boolean("allow"), false);
  }
  EXPECT_EQ(mode(), 0750U);
}

TEST_F(KeelhouseEdits, ConcurrentRemovalOfSameNumberFailsForOne) {
  for (int round = 0; round < 8; ++round) {
    done({"acl", "set", path_, "allow user:2147400001 read", "allow user:2147400002 read",
          "allow user:2147400003 read"});
    const std::vector<std::string> remove{"acl", "remove", path_, "1"};
    const auto ended = together({remove, remove});
    const auto failed =
        std::count_if(ended.begin(), ended.end(), [](const auto& one) { return one.status != 0; });
    // One after the other, each has seen the entry that it removes.
    EXPECT_EQ(entriesShown(), failed == 0 ? 1U : 2U);
    for (const EndedProgram& one : ended) {
      if (one.status == 0) continue;
      EXPECT_THAT(one.error, HasSubstr("\"allow user:2147400001 read\" was removed; nothing was "
                                       "changed here"));
    }
  }
}

TEST_F(KeelhouseEdits, ConcurrentShareChangesAreAllKept) {
  done({"share", "add", path_});
  for (const EndedProgram& ended : together({{"share", "set", path_, "--name", "one"},
                                             {"share", "set", path_, "--smb-name", "two"},
                                             {"share", "set", path_, "--nfs", "192.0.2.1(ro)"},
                                             {"share", "set", path_, "--no-ftp"}})) {
    EXPECT_EQ(ended.status, 0) << ended.error;
  }
  const Dictionary share = shown("share", path_);
  EXPECT_EQ(*share.string("name"), "one");
  EXPECT_EQ(*share.string("nameOverSMB"), "two");
  EXPECT_NE(share.dictionary("nfsExportRecord"), nullptr);
  const std::string* ftp = share.string("nameOverFTP");
  EXPECT_TRUE(ftp == nullptr || ftp->empty()) << *ftp;
}

// Lines of the exports file by the folder, of those below the test's own.
class MovesAtOnce : public KeelhouseEdits {
 protected:
  void SetUp() override {
    KeelhouseEdits::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    first_ = makeFolder("first");
    second_ = makeFolder("second");
  }

  void share() const { done({"share", "add", path_, "--name", "moved", "--nfs", "192.0.2.9(ro)"}); }

  // Where it is now; empty when it is shared no longer.
  std::string place() const {
    std::string found;
    for (const std::string& path : {path_, first_, second_}) {
      if (keelhouse({"share", "show", path}).status != 0) continue;
      EXPECT_EQ(found, "") << path;
      found = path;
    }
    return found;
  }
  // No other folder is exported than where it is.
  void expectExportedAt(const std::string& path) const {
    const std::string exports = tree_.read("/etc/exports");
    for (const std::string& folder : {path_, first_, second_}) {
      EXPECT_EQ(exports.find(folder + " 192.0.2.9(ro)\n") != std::string::npos, folder == path)
          << folder << "\n"
          << exports;
    }
  }
  void clear(const std::string& path) const {
    if (!path.empty()) done({"share", "remove", path});
    expectExportedAt("");
  }

  std::string first_;
  std::string second_;
};

TEST_F(MovesAtOnce, SecondMoveFailsAndLeavesNoStaleExport) {
  for (int round = 0; round < 6; ++round) {
    share();
    const auto ended =
        together({{"share", "move", path_, first_}, {"share", "move", path_, second_}});
    const std::string place = this->place();
    EXPECT_EQ(ended[0].status == 0, place == first_) << ended[0].error;
    EXPECT_EQ(ended[1].status == 0, place == second_) << ended[1].error;
    EXPECT_NE(ended[0].status, ended[1].status) << ended[0].error << ended[1].error;
    expectExportedAt(place);
    clear(place);
  }
}

TEST_F(MovesAtOnce, ConcurrentlyRemovedExportIsNotMoved) {
  for (int round = 0; round < 6; ++round) {
    share();
    const auto ended =
        together({{"share", "move", path_, first_}, {"share", "set", path_, "--no-nfs"}});
    const std::string place = this->place();
    EXPECT_EQ(ended[0].status == 0, place == first_) << ended[0].error;
    // It may have been taken away, and the share moved before that could be read back.
    const bool isExported = tree_.read("/etc/exports").find(place + " 192") != std::string::npos;
    EXPECT_FALSE(isExported && ended[1].status == 0);
    expectExportedAt(isExported ? place : "");
    clear(place);
  }
}

TEST_F(MovesAtOnce, ConcurrentlyRemovedShareLeavesNoExport) {
  for (int round = 0; round < 6; ++round) {
    share();
    const auto ended = together({{"share", "move", path_, first_}, {"share", "remove", path_}});
    const std::string place = this->place();
    EXPECT_EQ(ended[0].status == 0, place == first_) << ended[0].error;
    // Of a share that has just gone elsewhere it takes away what is left here, or finds none.
    if (place == first_) {
      EXPECT_TRUE(ended[1].status == 0 || ended[1].error.find("is not shared") != std::string::npos)
          << ended[1].error;
    } else {
      EXPECT_EQ(ended[1].status == 0, place.empty()) << ended[1].error;
    }
    EXPECT_TRUE(ended[0].status == 0 || ended[1].status == 0) << ended[0].error << ended[1].error;
    // A removal that finds the old folder exported and not shared any more takes that away.
    const bool isSaidToBeLost =
        ended[0].error.find("is not exported. To export it:") != std::string::npos;
    expectExportedAt(isSaidToBeLost ? "" : place);
    clear(place);
  }
}

TEST_F(KeelhouseEdits, StaleTagReturns412AndChangesNothing) {
  const Response first = readSettings();
  const std::string tag = first.header("etag");
  ASSERT_GT(tag.size(), 2U);
  EXPECT_EQ(tag.front(), '"');
  EXPECT_EQ(readSettings().header("etag"), tag);
  EXPECT_EQ(writeMode("750", "If-Match: " + tag + "\r\n").status, 200);
  const Response refused = writeMode("700", "If-Match: " + tag + "\r\n");
  EXPECT_EQ(refused.status, 412);
  EXPECT_NE(refused.error(), "");
  EXPECT_EQ(refused.dictionary().size(), 1U);
  EXPECT_EQ(refused.header("etag"), "");
  EXPECT_EQ(mode(), 0750U);
  const std::string present = readSettings().header("etag");
  EXPECT_NE(present, tag);
  EXPECT_EQ(writeMode("700", "If-Match: \"other\", " + present + "\r\n").status, 200);
  EXPECT_EQ(writeMode("710", "If-Match: *\r\n").status, 200);
  EXPECT_EQ(mode(), 0710U);
  EXPECT_EQ(writeMode("777", "If-Match: W/" + present + "\r\n").status, 412);
  EXPECT_EQ(writeMode("777", "If-Match: \r\n").status, 412);
  EXPECT_EQ(mode(), 0710U);
}

TEST_F(KeelhouseEdits, TwoLinesOfTheHeaderAreOneList) {
  const std::string tag = readSettings().header("etag");
  EXPECT_EQ(writeMode("750", "If-Match: \"a\"\r\nIf-Match: " + tag + "\r\n").status, 200);
  EXPECT_EQ(writeMode("755", "If-Match: \"a\"\r\nif-match: \"b\"\r\n").status, 412);
}

TEST_F(KeelhouseEdits, ExternalChangeAltersTag) {
  const std::string tag = readSettings().header("etag");
  ASSERT_EQ(::chmod(path_.c_str(), 0711), 0);
  EXPECT_NE(readSettings().header("etag"), tag);
  EXPECT_EQ(writeMode("750", "If-Match: " + tag + "\r\n").status, 412);
  EXPECT_EQ(mode(), 0711U);
}

TEST_F(KeelhouseEdits, UnlistedStateIsPartOfTag) {
  const auto post = [this](const std::string& operation, const std::string& more) {
    return daemon_->post("/v1/paddock_files/" + operation,
                         R"({"path":")" + path_ + '"' + more + "}");
  };
  const std::string open = readSettings().header("etag");
  EXPECT_EQ(post("makeComplete", R"(,"empty":true)").dictionary().integer("status"), 0);
  const std::string locked = readSettings().header("etag");
  EXPECT_NE(locked, open);
  EXPECT_EQ(writeMode("750", "If-Match: " + open + "\r\n").status, 412);
  EXPECT_EQ(post("setModeBits", R"(,"bits":"2")").dictionary().integer("status"), 0);
  EXPECT_NE(readSettings().header("etag"), locked);
  EXPECT_EQ(writeMode("750", "If-Match: " + locked + "\r\n").status, 412);
}

TEST_F(KeelhouseEdits, OnlySingleFolderReadingHasTag) {
  EXPECT_EQ(daemon_->post("/v1/paddock_sharing/readSettings", "{}").header("etag"), "");
  EXPECT_EQ(daemon_->post("/v1/paddock_sharing/getSharePointList", "{}").header("etag"), "");
}

// What keelhouse shows goes back as it was.

// Made by an SMB client: complete, with an entry of a foreign domain's user.
std::string completeList() { return nt_acl::samples::madeBySamba(1); }

class RoundTrips : public KeelhouseEdits {
 protected:
  // Shows, changes, and takes back.
  void goRound(const std::string& path) const {
    const std::string before = attribute(path);
    const std::string document = done({"acl", "show", path, "--json"});
    const EndedProgram untouched = keelhouse({"acl", "set", path, "--from", "-"}, document);
    ASSERT_EQ(untouched.status, 0) << untouched.error << document;
    EXPECT_THAT(done({"acl", "show", path}), StartsWith(untouched.output));
    EXPECT_EQ(attribute(path), before) << document;
    // What the kernel cannot say of a denied group is a note on standard error.
    EXPECT_EQ(keelhouse({"acl", "add", path, "--first", "deny", "user:2147400000", "full"}).status,
              0);
    ASSERT_NE(attribute(path), before);
    const EndedProgram ended = keelhouse({"acl", "set", path, "--from", "-"}, document);
    ASSERT_EQ(ended.status, 0) << ended.error << document;
    EXPECT_EQ(attribute(path), before) << document;
  }

  // A name that is empty publishes no more than one that is absent.
  static Dictionary withoutEmptyNames(Dictionary share) {
    const std::string* name = share.string("nameOverFTP");
    if (name != nullptr && name->empty()) share.erase("nameOverFTP");
    return share;
  }

  std::vector<std::string> randomEntry() {
    const auto pick = [this](std::size_t count) { return random_() % count; };
    static const std::vector<std::string> kWho{"user:root",
                                               "group:nogroup",
                                               "user:2147418113",
                                               "group:2147418114",
                                               "DEADBEEF-0000-4000-8000-000000000001",
                                               "user:nobody"};
    static const std::vector<std::string> kRights{
        "read", "write", "full", "none", "delete", "list,add-folder", "read,change-owner"};
    static const std::vector<std::string> kInheritance{"",
                                                       ":inherit",
                                                       ":file-inherit",
                                                       ":directory-inherit,limit-inherit",
                                                       ":inherit,only-inherit",
                                                       ":inherited",
                                                       ":inherit,inherited"};
    return {pick(2) == 0 ? "allow" : "deny", kWho[pick(kWho.size())],
            kRights[pick(kRights.size())] + kInheritance[pick(kInheritance.size())]};
  }

  std::mt19937 random_{20261122};  // the same lists each time
};

TEST_F(RoundTrips, RandomLists) {
  for (int round = 0; round < 25; ++round) {
    std::vector<std::string> words{"acl", "set", path_};
    for (std::size_t count = 1 + random_() % 8; count > 0; --count) {
      const auto entry = randomEntry();
      words.insert(words.end(), entry.begin(), entry.end());
    }
    EXPECT_EQ(keelhouse(words).status, 0);
    goRound(path_);
  }
}

TEST_F(RoundTrips, SmbClientsListWithForeignUser) {
  const std::string list = completeList();
  ASSERT_EQ(::setxattr(path_.c_str(), kAttribute, list.data(), list.size(), 0), 0);
  done({"acl", "add", path_, "allow", "user:root", "read"});
  goRound(path_);
}

TEST_F(RoundTrips, UnchangedListIsNotRewritten) {
  const std::string list = completeList();
  ASSERT_EQ(::setxattr(path_.c_str(), kAttribute, list.data(), list.size(), 0), 0);
  const std::string document = done({"privs", "show", path_, "--json"});
  for (const char* command : {"acl", "privs"}) {
    const EndedProgram ended = keelhouse({command, "set", path_, "--from", "-"}, document);
    EXPECT_EQ(ended.status, 0) << ended.error;
    EXPECT_EQ(attribute(path_), list) << command;
  }
}

TEST_F(RoundTrips, PrivilegesWithOwnersThatHaveNoName) {
  ASSERT_EQ(::chown(path_.c_str(), 2147400001, 65534), 0);
  done({"acl", "set", path_, "allow", "user:nobody", "read:inherit"});
  done({"privs", "set", path_, "--mode", "2751"});
  const Dictionary document = shown("privs", path_);
  EXPECT_EQ(*document.string("path"), path_);
  EXPECT_EQ(*document.string("type"), "directory");
  EXPECT_EQ(*document.string("owner"), "2147400001");
  EXPECT_EQ(*document.string("group"), "nogroup");
  writeWholeFile(folder_.path("document"), wire::writeJson(document));
  const std::string list = attribute(path_);
  done({"privs", "set", path_, "--group", "daemon", "--mode", "1700"});
  done({"acl", "clear", path_});
  EXPECT_THAT(done({"privs", "set", path_, "--from", folder_.path("document")}),
              HasSubstr("owner: 2147400001\ngroup: nogroup\n"));
  EXPECT_EQ(shown("privs", path_), document);
  EXPECT_EQ(attribute(path_), list);
}

TEST_F(RoundTrips, TheExampleOfTheManual) {
  const std::string manual = readWholeFile(KEELHOUSE_MANUAL);
  const std::string begin = ".\\\" example\n";
  const std::size_t start = manual.find(begin) + begin.size();
  const std::string example = manual.substr(start, manual.find(".\\\" end\n") - start);
  const EndedProgram ended = keelhouse({"acl", "set", path_, "--from", "-"}, example);
  ASSERT_EQ(ended.status, 0) << ended.error;
  std::string error;
  const auto document = wire::parseJson(example, error);
  ASSERT_TRUE(document && document->dictionary() != nullptr) << error << example;
  EXPECT_EQ(*shown("acl", path_).array("acl"), *document->dictionary()->array("acl"));
  EXPECT_NE(*shown("acl", path_).string("path"), *document->dictionary()->string("path"));
}

TEST_F(RoundTrips, ShareSettings) {
  done({"share", "add", path_, "--name", "one", "--no-ftp", "--nfs", "192.0.2.1(ro,sync)"});
  const Dictionary document = shown("share", path_);
  const std::string json = wire::writeJson(document);
  EXPECT_EQ(
      keelhouse({"share", "set", path_, "--name", "two", "--ftp", "--no-smb", "--no-nfs"}).status,
      0);
  ASSERT_NE(shown("share", path_), document);
  const EndedProgram set = keelhouse({"share", "set", path_, "--from", "-"}, json);
  ASSERT_EQ(set.status, 0) << set.error;
  // A name that was taken away is empty, one that never was is absent.
  EXPECT_EQ(wire::writeJson(withoutEmptyNames(shown("share", path_))),
            wire::writeJson(withoutEmptyNames(document)));
  done({"share", "remove", path_});
  const EndedProgram added = keelhouse({"share", "add", path_, "--from", "-"}, json);
  ASSERT_EQ(added.status, 0) << added.error;
  EXPECT_EQ(withoutEmptyNames(shown("share", path_)), withoutEmptyNames(document));
}

TEST_F(RoundTrips, InvalidDocumentReturnsUsageErrorAndChangesNothing) {
  done({"acl", "set", path_, "allow", "user:root", "read"});
  const std::string before = attribute(path_);
  for (const std::string& document :
       {std::string(), std::string("[]"), std::string("{"), std::string("{}"),
        std::string(R"({"acl":[{"allow":true,"kind":"user","name":"root","right":["read"]}]})")}) {
    const EndedProgram ended = keelhouse({"acl", "set", path_, "--from", "-"}, document);
    EXPECT_EQ(ended.status, 2) << document;
    EXPECT_EQ(attribute(path_), before) << document;
  }
  EXPECT_EQ(keelhouse({"acl", "set", path_, "--from", folder_.path("missing")}).status, 2);
}

}  // namespace
}  // namespace paddock::testing
