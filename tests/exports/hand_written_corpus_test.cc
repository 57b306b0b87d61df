// Whatever is added, replaced and removed by us, exportfs makes the same of what people wrote.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "exportfs_world.h"
#include "exports/nfs_export_parser.h"
#include "platform/testing/fake_machine_information.h"
#include "platform/testing/recording_host_services.h"

namespace paddock {
namespace {

const std::string kBegin = std::string(kBeginMarker) + "\n";
const std::string kEnd = std::string(kEndMarker) + "\n";

const std::string kBlock = kBegin + "@/share0 10.9.0.1(rw)\n" + kEnd;

// "@" stands for the folder of the shared folders.
const std::vector<std::string> kCorpus = {
    // Blank lines end entries that go on.
    "/tmp a(rw) \\\n\n/usr c(rw)\n",
    "/tmp a(rw) \\\n   \t\n/usr c(rw)\n",
    "/tmp a(rw) \\\n\n\n\n   /usr c(rw)\n\n",
    // Entries that go on.
    "@/a 10.0.0.1(rw) \\\n10.0.0.2(ro)\n@/b 10.0.0.3(rw)\n",
    "@/a \\\n\t10.0.0.1(rw) \\\n\t10.0.0.2(ro) \\\n\t10.0.0.3(rw)\n",
    "@/a 10.0.0.1(rw)\\\n10.0.0.2(ro)\n  @/b\\\n 10.0.0.3(rw)\n",
    "\\\n@/a 10.0.0.1(rw)\n\\\n\\\n@/b 10.0.0.2(rw)\n",
    "@/a 10.0.0.1(rw) \\\n\\\n\\\n10.0.0.2(ro)\n@/b 10.0.0.3(rw)\n",
    "@/a 10.0.0.1(rw) \\\n@/b 10.0.0.2(rw)\n@/c 10.0.0.3(ro)\n",
    "@/a 10.0.0.1(rw) \\\n",
    "@/a 10.0.0.1(rw) \\",
    // Quotes, also around line breaks.
    "\"@/sp ace\" 10.0.0.1(rw)\n@/\"sp ace\" \"10.0.0.2(ro)\"\n",
    "\"@/new\nline\" 10.0.0.1(rw)\n\n@/b 10.0.0.2(rw)\n",
    "\"@/new\n\n  line\" 10.0.0.1(rw)\n@/b 10.0.0.2(rw)\n",
    "\"@/sp \\\n   ace\" 10.0.0.1(rw)\n@/b 10.0.0.2(rw)\n",
    "@/a \"10.0.0.1(rw)\n@/b 10.0.0.2(rw)\n@/c 10.0.0.3(rw)\n",
    "@/a \"\" 10.0.0.1(rw) \\\n\n@/b 10.0.0.2(rw)\n",
    "@/a 10.0.0.1(rw) \"\" @/b 10.0.0.2(rw) \\\n 10.0.0.3(ro)\n@/c 10.0.0.3(rw)\n",
    // Octal escapes.
    "@/sp\\040ace 10.0.0.1(rw)\n@/ha\\043sh 10.0.0.2(ro)\n@/tab\\011bed 10.0.0.3(rw)\n",
    "@/new\\012line 10.0.0.1(rw) \\\n 10.0.0.2(ro)\n",
    // Tabs and blanks.
    "\t@/a\t10.0.0.1(rw)\t\t10.0.0.2(ro)\t\n   @/b   10.0.0.3(rw)   \n",
    // Comments at every place.
    "# first\n@/a 10.0.0.1(rw) # behind\n  # indented\n\n#\n@/b 10.0.0.2(rw)#no comment\n",
    "# comment \\\n@/a 10.0.0.1(rw)\n@/b 10.0.0.2(rw) # comment \\\n@/c 10.0.0.3(rw)\n",
    "@/a 10.0.0.1(rw) \\\n # comment\n@/b 10.0.0.2(rw)\n",
    "@/a 10.0.0.1(rw) \\\n# comment \\\n\n10.0.0.2(ro)\n@/b 10.0.0.3(rw)\n",
    "@/a #10.0.0.1(rw)\n@/ha#sh 10.0.0.2(rw)\n",
    // Several paths and no client at all.
    "@/a @/b 10.0.0.1(rw)\n@/c\n@/d (ro)\n@/e *(rw)\n",
    // Netgroups, networks, wildcards, IPv6.
    "@/a @trusted(rw) 10.0.0.0/8(ro) 10.1.0.0/255.255.0.0(rw) *.example.org(ro)\n",
    "@/a 2001:db8::1(rw) 2001:db8::/32(ro) fe80::1(rw) \\\n ::1(ro)\n@/b ?.example.org(rw)\n",
    "@/a gss/krb5p(rw) 10.0.0.1(sec=krb5:krb5i:sys,rw)\n@/b 10.0.0.2(sec=sys,sec=krb5p,ro)\n",
    // Default options.
    "@/a -ro,insecure 10.0.0.1 10.0.0.2(rw) -async 10.0.0.3\n@/b 10.0.0.4(rw)\n",
    "@/a -ro,\\\ninsecure 10.0.0.1\n@/b -sync \\\n10.0.0.2(rw) \\\n\n@/c 10.0.0.3(ro)\n",
    // Options of every kind, and one that there is not.
    "@/a 10.0.0.1(rw,no_root_squash,anonuid=99,anongid=-2,fsid=7,crossmnt,mp=/srv/a)\n",
    "@/a 10.0.0.1(rw)\n@/b 10.0.0.2(no_such_option)\n@/c 10.0.0.3(rw)\n",
    "@/a 10.0.0.1(rw\n@/b 10.0.0.2(rw)\n",
    // Carriage returns.
    "@/a 10.0.0.1(rw)\r\n@/b 10.0.0.2(ro)\r\n# comment\r\n@/c 10.0.0.3(rw)\r\n",
    "@/a 10.0.0.1(rw)\r\n\r\n@/b 10.0.0.2(ro)\r\n",
    "@/a 10.0.0.1(rw) \\\r\n  10.0.0.2(ro)\r\n@/b 10.0.0.3(rw)\r\n",
    "@/a 10.0.0.1(rw) \\\n\r\n@/b 10.0.0.2(ro)\r\n",
    // Other white space.
    "@/a 10.0.0.1(rw)\v10.0.0.2(ro)\n@/b 10.0.0.3(rw) \f@/c 10.0.0.4(ro)\n",
    "@/a 10.0.0.1(rw)\n\v@/b 10.0.0.2(rw)\n@/c 10.0.0.3(rw)\n",
    // What is no path, what is too long.
    "junk 10.0.0.1(rw)\n@/b 10.0.0.2(rw)\n",
    "@/a 10.0.0.1(rw) \\\n" + std::string(600, 'w') + "(rw) \\\n\n@/b 10.0.0.2(rw)\n",
    // Around a block.
    "@/a 10.0.0.1(rw) \\\n" + kBlock + "@/b 10.0.0.2(rw)\n",
    kBlock + "@/a 10.0.0.1(rw) \\\n\n@/b 10.0.0.2(rw)",
    "@/a 10.0.0.1(rw)\n" + kBlock + "  \\\n  @/b 10.0.0.2(rw)\n" + kBlock + "@/c 10.0.0.3(rw) \\\n",
    // Inside one.
    kBegin + "@/share0 10.9.0.1(rw) \\\n\n@/a 10.0.0.1(rw) \\\n  10.0.0.2(ro)\n# c \\\n" + kEnd +
        "@/b 10.0.0.3(rw)\n",
    kBegin + "@/a 10.0.0.1(rw) \\\n" + kEnd + "10.0.0.2(ro)\n@/b 10.0.0.3(rw)\n",
    kBegin + "@/share0 10.9.0.1(rw)\n@/a 10.0.0.1(rw) \\\n\n@/b 10.0.0.2(rw)\n",
    "",
    "\n \n\t\n",
};

class HandWrittenExportsCorpus : public ExportfsWorld {
 protected:
  void prepareFolders() {
    prepare();
    services_.logger = &logger_;
    services_.clock = &clock_;
    for (const char* name : {"a", "b", "c", "d", "e", "sp ace", "ha#sh", "tab\tbed", "new\nline",
                             "new\n\n  line", "share0", "share1", "share2", "share3"}) {
      share(name);
    }
    writeWholeFile(folder_.path("hosts"),
                   "127.0.0.1 localhost\n10.1.1.1 a\n10.1.1.2 b\n10.1.1.3 c\n");
    bindMount(folder_.path("hosts"), "/etc/hosts");
  }

  std::string withFolders(std::string text) const {
    const std::string folder = folder_.path("shares");
    for (std::size_t at = 0; (at = text.find("@/", at)) != std::string::npos; at += folder.size()) {
      text.replace(at, 1, folder);
    }
    return text;
  }

  // What exportfs makes of the file, but for the folders that we share.
  Table handWrittenExports() const {
    writeWholeFile(std::string(kStateFolder) + "/etab", "");
    bindMount(folder_.path("exports"), kExportsFile);
    run({kExportfs, "-ra"});
    EXPECT_EQ(::umount2(kExportsFile, MNT_DETACH), 0);
    Table table = serversTable();
    for (int number = 0; number < 4; ++number) {
      table.erase(folder_.path("shares/share" + std::to_string(number)));
    }
    return table;
  }

  void changeSomething(NFSExportParser& parser, std::mt19937& random) const {
    const std::string path = folder_.path("shares/share" + std::to_string(random() % 4));
    if (random() % 3 == 0) {
      parser.removeExportWithPath(path);
      return;
    }
    auto record = std::make_shared<NFSExportRecord>();
    record->setPath(path);
    record->setClients({{"10.9.0." + std::to_string(random() % 200), {"rw"}}, {"*", {"ro"}}});
    parser.addOrReplaceExport(record);
  }

  FakeClock clock_;
  RecordingLogger logger_;
};

TEST_F(HandWrittenExportsCorpus, KeepsItsMeaningWhileSharesChange) {
  if (const auto why = whyNoExportfs(); !why.empty()) GTEST_SKIP() << why;
  ASSERT_GE(kCorpus.size(), 30U);
  runInOwnMounts([&] {
    prepareFolders();
    const ServicesGuard guard(services_);
    std::mt19937 random(20'261'122);
    std::size_t exported = 0;
    for (const std::string& text : kCorpus) {
      writeWholeFile(folder_.path("exports"), withFolders(text));
      const Table before = handWrittenExports();
      exported += before.size();
      auto parser = NFSExportParser::parserWithFile(folder_.path("exports"));
      for (int round = 0; round < 8; ++round) {
        // As after the daemon was started again, and as while it runs on.
        if (random() % 3 == 0) parser = NFSExportParser::parserWithFile(folder_.path("exports"));
        for (auto changes = random() % 3; changes > 0; --changes) changeSomething(*parser, random);
        parser->writeFileKeepingOthersChanges();
        ASSERT_EQ(handWrittenExports(), before) << "was:\n"
                                                << withFolders(text) << "is:\n"
                                                << readWholeFile(folder_.path("exports"));
      }
    }
    EXPECT_GT(exported, 60U) << "exportfs read the corpus";
    EXPECT_TRUE(logger_.lines().empty());
  });
}

}  // namespace
}  // namespace paddock
