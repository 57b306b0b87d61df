// nfs-utils reads what is written here as it was meant: every corpus entry goes through a real
// exportfs, which has an exports file and a state folder of its own for the purpose.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "exportfs_world.h"
#include "exports/nfs_export_parser.h"

namespace paddock {
namespace {

// What exportfs knows, each alone.
constexpr auto kKnownOptions =
    std::to_array<const char*>({"ro",
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
                                "sec=krb5:krb5i:krb5p"});

constexpr auto kHostileNames = std::to_array<const char*>({"plain",
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
                                                           " "});

std::vector<std::string> hostilePaths() {
  std::vector<std::string> paths(kHostileNames.begin(), kHostileNames.end());
  paths.push_back("long/" + std::string(200, 'p') + "/" + std::string(200, ' ') + "/" +
                  std::string(200, '\\'));
  return paths;
}

class ExportfsProgram : public ExportfsWorld {
 protected:
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
};

TEST_F(ExportfsProgram, ListsEveryHostilePathWithClientsAndOptions) {
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

TEST_F(ExportfsProgram, ShowsThePathsToTheAdministrator) {
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

TEST_F(ExportfsProgram, AcceptsLongestValidPathAndClient) {
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

TEST_F(ExportfsProgram, KnowsEveryOptionThatIsCalledOne) {
  if (const auto why = whyNoExportfs(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    prepare();
    const ServicesGuard guard(services_);
    const auto parser = NFSExportParser::parserWithFile(folder_.path("exports"));
    int number = 0;
    for (const char* option : kKnownOptions) {
      add(*parser, share("option" + std::to_string(number++)), {{"*", {option}}});
    }
    const ProgramRun result = exportAll(*parser);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.output, testing::Not(testing::HasSubstr("unknown")));
    EXPECT_THAT(result.output, testing::Not(testing::HasSubstr("error")));
    EXPECT_EQ(serversTable().size(), static_cast<std::size_t>(number));
  });
}

// The lines of hand-written files that the parser reads as exports mean the same to the server.
TEST_F(ExportfsProgram, ReadsHandWrittenLinesLikeParser) {
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
