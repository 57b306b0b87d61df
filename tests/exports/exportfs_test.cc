// nfs-utils reads what is written here as it was meant: every corpus entry goes through a real
// exportfs, which has an exports file and a state folder of its own for the purpose.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <vector>

#include "exports/nfs_export_parser.h"
#include "platform/linux/linux_text_files.h"
#include "platform/services.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

constexpr const char* kExportfs = "/usr/sbin/exportfs";
constexpr const char* kExportsFile = "/etc/exports";
constexpr const char* kStateFolder = "/var/lib/nfs";

std::string whyNoExportfs() {
  for (const char* needed : {kExportfs, kExportsFile, kStateFolder}) {
    if (!std::filesystem::exists(needed)) return std::string("there is no ") + needed;
  }
  return whyNoOwnMounts();
}

struct ProgramRun {
  int exitStatus = -1;
  std::string output;  // both streams
};

ProgramRun run(std::vector<const char*> arguments) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) throw std::runtime_error("pipe");
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends[1], 1);
    ::dup2(ends[1], 2);
    ::close(ends[0]);
    ::close(ends[1]);
    arguments.push_back(nullptr);
    ::execv(arguments.front(), const_cast<char* const*>(arguments.data()));
    ::_exit(127);
  }
  ::close(ends[1]);
  ProgramRun result;
  std::array<char, 4096> chunk{};
  for (ssize_t count; (count = ::read(ends[0], chunk.data(), chunk.size())) > 0;) {
    result.output.append(chunk.data(), static_cast<std::size_t>(count));
  }
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  return result;
}

// A word of the server's table: the bytes that it writes as \ooo, each decoded once.
std::string decodedOnce(const std::string& word) {
  std::string text;
  for (std::size_t at = 0; at < word.size(); ++at) {
    if (word[at] != '\\') {
      text += word[at];
      continue;
    }
    text += static_cast<char>(std::stoi(word.substr(at + 1, 3), nullptr, 8));
    at += 3;
  }
  return text;
}

// The server's table: path -> client -> options, with a comma before and behind each.
using Table = std::map<std::string, std::map<std::string, std::string>>;

Table serversTable() {
  Table table;
  std::ifstream stream(std::string(kStateFolder) + "/etab");
  for (std::string line; std::getline(stream, line);) {
    const std::size_t tab = line.find('\t');
    const std::size_t open = line.find('(', tab);
    table[decodedOnce(line.substr(0, tab))][line.substr(tab + 1, open - tab - 1)] =
        "," + line.substr(open + 1, line.size() - open - 2) + ",";
  }
  return table;
}

std::vector<std::string> hostilePaths() {
  std::vector<std::string> paths = {"plain",
                                    "a b",
                                    " leading",
                                    "trailing ",
                                    "two  blanks",
                                    "tab\tbed",
                                    "new\nline",
                                    "\"quoted\"",
                                    "one\"",
                                    "'single'",
                                    "back\\slash",
                                    "end\\",
                                    "#hash",
                                    "ha#sh",
                                    "(brackets)",
                                    "open(",
                                    "[square]",
                                    "com,ma",
                                    "-dash",
                                    "star*",
                                    "what?",
                                    "colon:",
                                    "equals=",
                                    "percent%20",
                                    "$HOME",
                                    "`id`",
                                    "semi;colon",
                                    "amp&",
                                    "caf\xC3\xA9",
                                    "\xE6\x97\xA5\xE6\x9C\xAC",
                                    "\xF0\x9F\x90\x8E",
                                    "ctl\x01\x1F\x7F",
                                    "carriage\rreturn",
                                    "form\ffeed",
                                    "vertical\vtab",
                                    "\\040",
                                    "\\134040",
                                    "\\\\040",
                                    "a\\101b",
                                    "\\1",
                                    "\\12",
                                    "\\400",
                                    "\\x41",
                                    "\\n",
                                    " \\040 1",
                                    "040",
                                    "\xC2\xA0nbsp",
                                    "\xE2\x80\xA8line",
                                    "-ro,rw",
                                    "10.0.0.1(rw)",
                                    "#",
                                    "\"",
                                    "\\",
                                    " "};
  paths.push_back("long/" + std::string(200, 'p') + "/" + std::string(200, ' ') + "/" +
                  std::string(200, '\\'));
  return paths;
}

class ExportfsTest : public testing::Test {
 protected:
  // The shared folders, the exports file and the state folder lie in a file system of the test.
  void prepare() {
    mountTmpfs(folder_.path(), "16m");
    std::filesystem::create_directory(folder_.path("state"));
    std::filesystem::create_directory(folder_.path("shares"));
    writeWholeFile(folder_.path("exports"), "");
    bindMount(folder_.path("state"), kStateFolder);
    services_.textFiles = &files_;
  }

  std::string share(const std::string& name) const {
    std::string path = folder_.path("shares/" + name);
    std::filesystem::create_directories(path);
    return path;
  }

  NFSExportRecordPtr add(NFSExportParser& parser, const std::string& path,
                         std::vector<NFSExportClient> clients) const {
    auto record = std::make_shared<NFSExportRecord>();
    record->setPath(path);
    record->setClients(std::move(clients));
    EXPECT_FALSE(record->invalidReason()) << path << ": " << *record->invalidReason();
    parser.addOrReplaceExport(record);
    return record;
  }

  // Writes the file and lets the server read it.
  ProgramRun exportAll(NFSExportParser& parser) const {
    EXPECT_TRUE(parser.writeFile());
    bindMount(folder_.path("exports"), kExportsFile);
    return run({kExportfs, "-ra"});
  }

  std::string lines() const { return readWholeFile(folder_.path("exports")); }

  TestFolder folder_;
  LinuxTextFiles files_;
  Services services_;
};

TEST_F(ExportfsTest, ListsEveryHostilePathWithItsClientsAndOptions) {
  if (const auto why = whyNoExportfs(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    prepare();
    const ServicesGuard guard(services_);
    const auto parser = NFSExportParser::parserWithFile(folder_.path("exports"));
    for (const std::string& name : hostilePaths()) {
      add(*parser, share(name),
          {{"10.1.2.3", {"rw", "no_subtree_check", "anonuid=99"}},
           {"*", {"ro", "no_subtree_check", "insecure"}}});
    }
    const ProgramRun result = exportAll(*parser);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "");
    Table table = serversTable();
    EXPECT_EQ(table.size(), hostilePaths().size());
    for (const std::string& name : hostilePaths()) {
      const auto& clients = table[share(name)];
      ASSERT_EQ(clients.size(), 2U) << name << "\n" << lines();
      EXPECT_THAT(clients.at("10.1.2.3"), testing::HasSubstr(",rw,"));
      EXPECT_THAT(clients.at("10.1.2.3"), testing::HasSubstr(",anonuid=99,"));
      EXPECT_THAT(clients.at("10.1.2.3"), testing::HasSubstr(",secure,"));
      EXPECT_THAT(clients.at("*"), testing::HasSubstr(",ro,"));
      EXPECT_THAT(clients.at("*"), testing::HasSubstr(",insecure,"));
    }
  });
}

// exportfs reads its own table again to list it, and takes a backslash before three octal digits
// for an escape there, whatever the exports file says; such paths are left out here.
bool isListedAsItIs(const std::string& path) {
  const auto read = readExportsLine(writeExportsLine({path, {{"*", {}}}}));
  std::string again = "\"" + path + "\" *";
  return read && path.find_first_of("\"\n") == std::string::npos && readExportsLine(again) &&
         readExportsLine(again)->path == path;
}

TEST_F(ExportfsTest, ShowsThePathsToTheAdministrator) {
  if (const auto why = whyNoExportfs(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    prepare();
    const ServicesGuard guard(services_);
    const auto parser = NFSExportParser::parserWithFile(folder_.path("exports"));
    std::vector<std::string> paths;
    for (const std::string& name : hostilePaths()) {
      if (isListedAsItIs(share(name))) paths.push_back(share(name));
    }
    ASSERT_GT(paths.size(), 40U);
    for (const std::string& path : paths) add(*parser, path, {{"10.1.2.3", {"rw"}}});
    EXPECT_EQ(exportAll(*parser).exitStatus, 0);
    const ProgramRun verbose = run({kExportfs, "-v"});
    EXPECT_EQ(verbose.exitStatus, 0);
    for (const std::string& path : paths) {
      EXPECT_THAT("\n" + verbose.output, testing::HasSubstr("\n" + path));
    }
    EXPECT_THAT(run({kExportfs, "-s"}).output,
                testing::HasSubstr(folder_.path("shares/a\\040b") + "  10.1.2.3(sync"));
  });
}

TEST_F(ExportfsTest, TakesTheLongestPathAndTheLongestClientThatAreCalledValid) {
  if (const auto why = whyNoExportfs(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    prepare();
    const ServicesGuard guard(services_);
    const auto parser = NFSExportParser::parserWithFile(folder_.path("exports"));
    std::string path = share("long");
    while (path.size() < 1024 - 201) path += "/" + std::string(200, 'p');
    path += "/" + std::string(1024 - path.size() - 1, 'q');
    std::filesystem::create_directories(path);
    // "10.0.0.1(mp=/...)" is 511 bytes long.
    const std::string mountPoint = "mp=/" + std::string(497, 'm');
    add(*parser, path, {{"10.0.0.1", {"ro"}}});
    add(*parser, share("after"), {{"*", {"ro"}}});
    add(*parser, share("client"), {{"10.0.0.1", {mountPoint}}});
    exportAll(*parser);
    const Table table = serversTable();
    EXPECT_TRUE(table.contains(path));
    EXPECT_TRUE(table.contains(share("client")));
    EXPECT_TRUE(table.contains(share("after")));
    NFSExportRecord tooLong;
    tooLong.setPath(path + "x");
    tooLong.setClients({{"*", {}}});
    EXPECT_FALSE(tooLong.isValid());
    tooLong.setPath(path);
    tooLong.setClients({{"10.0.0.1", {mountPoint + "m"}}});
    EXPECT_FALSE(tooLong.isValid());
  });
}

TEST_F(ExportfsTest, KnowsEveryOptionThatIsCalledOne) {
  if (const auto why = whyNoExportfs(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    prepare();
    const ServicesGuard guard(services_);
    const auto parser = NFSExportParser::parserWithFile(folder_.path("exports"));
    int number = 0;
    for (const char* option : {"ro",
                               "rw",
                               "secure",
                               "insecure",
                               "sync",
                               "async",
                               "wdelay",
                               "no_wdelay",
                               "hide",
                               "nohide",
                               "crossmnt",
                               "nocrossmnt",
                               "root_squash",
                               "no_root_squash",
                               "all_squash",
                               "no_all_squash",
                               "subtree_check",
                               "no_subtree_check",
                               "insecure_locks",
                               "secure_locks",
                               "auth_nlm",
                               "no_auth_nlm",
                               "acl",
                               "no_acl",
                               "nordirplus",
                               "pnfs",
                               "no_pnfs",
                               "security_label",
                               "fsid=0",
                               "fsid=root",
                               "fsid=12345678-1234-1234-1234-123456789012",
                               "anonuid=5",
                               "anongid=-2",
                               "mp",
                               "mountpoint",
                               "mp=/srv",
                               "mountpoint=/a#b",
                               "refer=/a@b",
                               "replicas=/a@b+c",
                               "sec=sys",
                               "sec=unix",
                               "sec=none",
                               "sec=null",
                               "sec=krb5:krb5i:krb5p"}) {
      add(*parser, share("option" + std::to_string(number++)), {{"*", {option}}});
    }
    const ProgramRun result = exportAll(*parser);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.output, testing::Not(testing::HasSubstr("unknown")));
    EXPECT_THAT(result.output, testing::Not(testing::HasSubstr("error")));
    EXPECT_EQ(serversTable().size(), static_cast<std::size_t>(number));
  });
}

// The lines of hand-written files that are read here as exports say the same to the server.
TEST_F(ExportfsTest, ReadsHandWrittenLinesAsTheyAreReadHere) {
  if (const auto why = whyNoExportfs(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    prepare();
    const ServicesGuard guard(services_);
    const std::string shares = share("a b");
    const std::string folder = shares.substr(0, shares.size() - 4);
    for (const std::string& line :
         {"\"" + folder + "/a b\" 10.0.0.1(rw) # comment",
          folder + "/a\\040b\t10.0.0.1 10.0.0.2(ro)",
          folder + "/a\" b\" -rw,insecure 10.0.0.1 10.0.0.2(ro) -async 10.0.0.3",
          folder + "/a\\040b 10.0.0.1(rw)\r", folder + "/a\\040b (rw)",
          folder + "/a\\040b - 10.0.0.1(ro,)"}) {
      writeWholeFile(folder_.path("exports"), line + "\n");
      bindMount(folder_.path("exports"), kExportsFile);
      run({kExportfs, "-ra"});
      const auto read = readExportsLine(line);
      ASSERT_TRUE(read) << line;
      const Table table = serversTable();
      ASSERT_EQ(table.size(), 1U) << line;
      const auto& clients = table.begin()->second;
      EXPECT_EQ(read->path, table.begin()->first) << line;
      ASSERT_EQ(read->clients.size(), clients.size()) << line;
      for (const NFSExportClient& client : read->clients) {
        ASSERT_TRUE(clients.contains(client.host)) << line;
        const bool writable = std::find(client.options.rbegin(), client.options.rend(), "rw") <
                              std::find(client.options.rbegin(), client.options.rend(), "ro");
        EXPECT_THAT(clients.at(client.host), testing::HasSubstr(writable ? ",rw," : ",ro,"))
            << line;
      }
      ASSERT_EQ(::umount2(kExportsFile, MNT_DETACH), 0);
    }
  });
}

}  // namespace
}  // namespace paddock
