// `share add`, `set` and `remove` of folders that clients automount, against a scripted daemon.
#include <fcntl.h>
#include <unistd.h>

#include "keelhouse/share/automount_change.h"
#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// The reading end of a pipe that holds a password, as a word of the command line.
class PasswordPipe {
 public:
  explicit PasswordPipe(const std::string& password) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const std::string line = password + "\n";
    EXPECT_EQ(::write(ends[1], line.data(), line.size()), static_cast<ssize_t>(line.size()));
    ::close(ends[1]);
    descriptor_ = ends[0];
  }
  PasswordPipe(const PasswordPipe&) = delete;
  PasswordPipe& operator=(const PasswordPipe&) = delete;
  ~PasswordPipe() { ::close(descriptor_); }
  std::string word() const { return std::to_string(descriptor_); }

 private:
  int descriptor_ = -1;
};

constexpr const char* kNotShared = R"({"isShared":false})";

class ShareAutomount : public CommandFixture {
 protected:
  ShareAutomount() : folder("/srv/home"), name_(mountRecordName(folder)) {}

  std::string sharePoint(const std::string& more = {}) const {
    return R"({"path":")" + folder + R"(","isShared":true,"isSharedOverVSP":true,)" +
           R"("nameOverVSP":"home","isAutomounted":true,"automountMountPath":"/Network/a",)" +
           R"("automountDSPath":"/LDAP/site","automountFileSystemType":0)" + more + "}";
  }
  void answerRead(const std::string& sharePoint) {
    daemon_.answer(readPart("sharePointRecord", sharePoint));
  }
  void answerWritten(const std::string& sharePoint) {
    daemon_.answer(writtenPart("sharePointRecord", sharePoint));
  }
  void answerRecord(const std::string& mountPath, const std::string& type,
                    const std::string& options) {
    daemon_.answer(R"({"status":0,"record":{"dsAttrTypeStandard:VFSLinkDir":[")" + mountPath +
                   R"("],"dsAttrTypeStandard:VFSType":[")" + type +
                   R"("],"dsAttrTypeStandard:VFSOpts":[)" + options + "]}}");
  }
  std::string url(const std::string& share) const {
    return R"("url==vsp://;AUTH=NO%20USER%20AUTHENT@)" + name_.substr(0, name_.find(':')) + "/" +
           share + '"';
  }
  void answerNoRecord() { daemon_.answer(R"({"status":0})"); }
  void answerStatus(int status) {
    daemon_.answer(R"({"status":)" + std::to_string(status) + R"(,"error":"x"})");
  }

  int add(std::vector<std::string> words, const std::string& password = "pw") {
    const PasswordPipe pipe(password);
    words.insert(words.begin(), {"share", "add", folder, "--force", "--automount", "/Network/a",
                                 "--node", "/LDAP/site"});
    words.insert(words.end(), {"--admin", "joe", "--password-fd", pipe.word()});
    return run(words);
  }
  int set(std::vector<std::string> words, const std::string& password = "pw") {
    const PasswordPipe pipe(password);
    words.insert(words.begin(), {"share", "set", folder});
    words.insert(words.end(), {"--admin", "joe", "--password-fd", pipe.word()});
    return run(words);
  }

  const std::string folder;
  const std::string name_;
};

TEST_F(ShareAutomount, IsWrittenWithCredentialsThenVerified) {
  answerRead(kNotShared);
  answerNoRecord();
  answerWritten(sharePoint());
  answerRecord("/Network/a", "url", url("home"));
  EXPECT_EQ(add({}), 0) << error_;
  EXPECT_EQ(error_, "");
  EXPECT_THAT(out_, HasSubstr("automountMountPath: /Network/a\nautomountFileSystemType: VSP\n"
                              "automountDSPath: /LDAP/site\n"));
  ASSERT_EQ(asked(), 4U);
  EXPECT_THAT(body(2), StartsWith(R"({"configuration":{"dsCredentials":[{"adminPassword":"pw",)"
                                  R"("adminUserName":"joe","nodePath":"/LDAP/site"}],)"
                                  R"("sharePointRecord":{"automountDSPath":"/LDAP/site",)"
                                  R"("automountFileSystemType":0,"automountMountPath":)"
                                  R"("/Network/a","isAutomounted":true,)"));
  EXPECT_EQ(target(3), "POST /v1/paddock_directory/getRecord");
  EXPECT_EQ(body(3), R"({"adminPassword":"pw","adminUserName":"joe","name":")" + name_ +
                         R"(","node":"/LDAP/site","type":"dsRecTypeStandard:Mounts"})");
  EXPECT_EQ(body(1), body(3));
}

TEST_F(ShareAutomount, NfsOptionWithoutClientSelectsNfs) {
  const std::string overNfs = R"({"path":"/srv/home","isShared":true,"isAutomounted":true,)"
                              R"("automountMountPath":"/Network/a","automountDSPath":"/LDAP/site",)"
                              R"("automountFileSystemType":1})";
  answerRead(kNotShared);
  answerNoRecord();
  answerWritten(overNfs);
  answerRecord("/Network/a", "nfs", "");
  EXPECT_EQ(add({"--nfs"}), 0) << error_;
  EXPECT_THAT(body(2), HasSubstr(R"("automountFileSystemType":1)"));
  EXPECT_THAT(body(2), Not(HasSubstr("nfsExportRecord")));
  EXPECT_EQ(error_,
            "keelhouse: note: clients are to automount it over NFS, but it is not exported itself "
            "(--nfs CLIENT)\n");
}

TEST_F(ShareAutomount, OverNfsExportsToNamedClients) {
  answerRead(kNotShared);
  answerNoRecord();
  answerWritten(R"({"isShared":true,"automountMountPath":"/Network/a","automountFileSystemType":1,)"
                R"("nfsExportRecord":{"clients":[{"host":"*","options":["ro"]}]}})");
  answerRecord("/Network/a", "nfs", "");
  EXPECT_EQ(add({"--nfs", "--nfs", "*(ro)"}), 0) << error_;
  EXPECT_THAT(body(2), HasSubstr(R"("automountFileSystemType":1)"));
  EXPECT_THAT(body(2),
              HasSubstr(R"("nfsExportRecord":{"clients":[{"host":"*","options":["ro"]}]})"));
}

TEST_F(ShareAutomount, ReportsMissingRecord) {
  answerRead(kNotShared);
  answerNoRecord();
  answerWritten(sharePoint());
  answerNoRecord();
  EXPECT_EQ(add({}), 1);
  EXPECT_THAT(out_, HasSubstr("isAutomounted: yes\n"));
  EXPECT_EQ(error_,
            "keelhouse: the settings of /srv/home are written, but clients do not mount it "
            "so: the record " +
                name_ +
                " is not on /LDAP/site\njoe may not be allowed to write there. With "
                "another account: keelhouse share set /srv/home --admin USER\n");
}

TEST_F(ShareAutomount, MissingAccountNamesAccountOption) {
  answerRead(kNotShared);
  answerNoRecord();
  answerWritten(sharePoint());
  answerNoRecord();
  EXPECT_EQ(run({"share", "add", folder, "--force", "--automount", "/Network/a", "--node",
                 "/LDAP/site", "--json"}),
            1);
  EXPECT_THAT(body(2), Not(HasSubstr("dsCredentials")));
  EXPECT_THAT(body(1), Not(HasSubstr("admin")));
  EXPECT_THAT(out_, StartsWith("{\n  \"automountDSPath\""));
  EXPECT_THAT(error_, HasSubstr("The node takes it only from an account: keelhouse share set "
                                "/srv/home --admin USER\n"));
}

TEST_F(ShareAutomount, ReportsDifferingRecord) {
  const std::vector<std::vector<std::string>> records = {
      {"/Network/b", "url", url("home")},  {"/Network/a", "nfs", url("home")},
      {"/Network/a", "url", url("other")}, {"/Network/a", "url", R"("net")"},
      {"/Network/a", "url", ""},           {"/Network/a", "url", R"("url==vsp://none")"}};
  for (const auto& record : records) {
    answerRead(kNotShared);
    answerNoRecord();
    answerWritten(sharePoint());
    answerRecord(record[0], record[1], record[2]);
    EXPECT_EQ(add({}), 1);
    EXPECT_THAT(error_, HasSubstr("the record " + name_ + " on /LDAP/site says otherwise\n"));
  }
}

TEST_F(ShareAutomount, RecognizesEscapedNameInRecordUrl) {
  const std::string escaped = "a%20%C3%A9%25,/b";
  answerRead(kNotShared);
  answerNoRecord();
  answerWritten(sharePoint(R"(,"x":1)")
                    .replace(sharePoint().find(R"("nameOverVSP":"home")"),
                             std::string(R"("nameOverVSP":"home")").size(),
                             "\"nameOverVSP\":\"a \xC3\xA9%,/b\""));
  answerRecord("/Network/a", "url", R"("net",)" + url(escaped));
  EXPECT_EQ(add({}), 0) << error_;
}

TEST_F(ShareAutomount, ReportsUnreadableRecord) {
  answerRead(kNotShared);
  answerNoRecord();
  answerWritten(sharePoint());
  answerStatus(110);
  EXPECT_EQ(add({}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: the settings of /srv/home are written, but whether "
                                 "the record " +
                                 name_ +
                                 " is on /LDAP/site cannot be seen: Connection timed out "
                                 "(ETIMEDOUT, 110)\n"));
}

TEST_F(ShareAutomount, RefusedCredentialsChangeNothing) {
  answerRead(kNotShared);
  answerStatus(13);
  EXPECT_EQ(add({}, "wrong"), 1);
  EXPECT_EQ(error_,
            "keelhouse: the directory node /LDAP/site refuses joe: the name or the password is "
            "wrong\nNothing was changed.\n");
  EXPECT_EQ(asked(), 2U);
}

TEST_F(ShareAutomount, MissingNodeChangesNothing) {
  answerRead(kNotShared);
  answerStatus(2);
  EXPECT_EQ(add({}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: there is no directory node /LDAP/site\nNothing was "
                                 "changed."));
  answerRead(kNotShared);
  answerStatus(111);
  EXPECT_EQ(add({}), 1);
  EXPECT_THAT(error_,
              StartsWith("keelhouse: nothing was changed, because the directory node "
                         "/LDAP/site cannot be asked: Connection refused (ECONNREFUSED, 111)\n"));
  EXPECT_EQ(asked(), 4U);
}

TEST_F(ShareAutomount, IsWrittenToNodeUnreadableWithoutAccount) {
  answerRead(kNotShared);
  answerStatus(13);
  answerWritten(sharePoint());
  answerStatus(13);
  EXPECT_EQ(
      run({"share", "add", folder, "--force", "--automount", "/Network/a", "--node", "/LDAP/site"}),
      1);
  EXPECT_EQ(asked(), 4U);
  EXPECT_THAT(error_, HasSubstr("cannot be seen: Permission denied (EACCES, 13)\n"));
}

TEST_F(ShareAutomount, UnusablePasswordIsRejectedBeforeDirectoryRequest) {
  for (const std::string& password : {std::string(), std::string("\xFF"), std::string(1025, 'x')}) {
    answerRead(kNotShared);
    EXPECT_EQ(add({}, password), 2);
    EXPECT_THAT(error_, StartsWith("keelhouse: the password is "));
  }
  EXPECT_EQ(asked(), 3U);
}

TEST_F(ShareAutomount, AccountAloneRewritesRecord) {
  answerRead(sharePoint());
  answerNoRecord();
  answerWritten(sharePoint());
  answerRecord("/Network/a", "url", url("home"));
  EXPECT_EQ(set({}), 0) << error_;
  EXPECT_THAT(body(2), HasSubstr(R"("sharePointRecord":{"path":"/srv/home"}})"));
  EXPECT_THAT(body(2), HasSubstr(R"("nodePath":"/LDAP/site")"));
}

TEST_F(ShareAutomount, RefusesAccountForFolderWithoutAutomount) {
  answerRead(R"({"path":"/srv/home","isShared":true})");
  EXPECT_EQ(set({}), 1);
  EXPECT_EQ(error_,
            "keelhouse: /srv/home is not automounted, so there is nothing to write as joe\n");
  EXPECT_EQ(asked(), 1U);
}

TEST_F(ShareAutomount, IsVerifiedAfterVspNameChange) {
  answerRead(sharePoint());
  answerRecord("/Network/a", "url", url("home"));
  answerWritten(sharePoint());
  answerRecord("/Network/a", "url", url("home"));
  EXPECT_EQ(run({"share", "set", folder, "--vsp-name", "home"}), 0) << error_;
  EXPECT_EQ(asked(), 4U);
}

TEST_F(ShareAutomount, OtherChangesSkipVerification) {
  answerRead(sharePoint());
  answerWritten(sharePoint());
  EXPECT_EQ(run({"share", "set", folder, "--no-ftp"}), 0) << error_;
  EXPECT_EQ(asked(), 2U);
}

TEST_F(ShareAutomount, LookupUsesStoredPathSpelling) {
  answerRead(sharePoint());
  answerNoRecord();
  answerWritten(sharePoint());
  answerRecord("/Network/a", "url", url("home"));
  const PasswordPipe pipe("pw");
  EXPECT_EQ(run({"share", "set", "/SRV/home", "--admin", "joe", "--password-fd", pipe.word()}), 0)
      << error_;
  EXPECT_THAT(body(1), HasSubstr(name_));
}

TEST_F(ShareAutomount, MoveToAnotherNodeRequiresRemoval) {
  answerRead(sharePoint());
  EXPECT_EQ(set({"--automount", "/Network/a", "--node", "/Local"}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: clients automount it by /LDAP/site\n"));
  EXPECT_EQ(asked(), 1U);
}

TEST_F(ShareAutomount, IsRemovedWithCredentials) {
  answerRead(sharePoint());
  answerRecord("/Network/a", "url", url("home"));
  answerWritten(R"({"path":"/srv/home","isShared":true})");
  answerNoRecord();
  EXPECT_EQ(set({"--no-automount"}), 0) << error_;
  EXPECT_EQ(body(2), R"({"configuration":{"dsCredentials":[{"adminPassword":"pw",)"
                     R"("adminUserName":"joe","nodePath":"/LDAP/site"}],)"
                     R"("sharePointRecord":{"isAutomounted":false,"path":"/srv/home"}},)"
                     R"("optionalArguments":{"path":"/srv/home"}})");
  EXPECT_EQ(out_, "path: /srv/home\n");
}

TEST_F(ShareAutomount, IsRemovedWithShare) {
  answerRead(sharePoint());
  answerRecord("/Network/a", "url", url("home"));
  answerWritten(kNotShared);
  answerNoRecord();
  const PasswordPipe pipe("pw");
  EXPECT_EQ(run({"share", "remove", folder, "--admin", "joe", "--password-fd", pipe.word()}), 0)
      << error_;
  EXPECT_EQ(out_, "/srv/home is no longer shared.\n");
  EXPECT_THAT(body(2), StartsWith(R"({"configuration":{"dsCredentials":[{"adminPassword":"pw",)"));
}

TEST_F(ShareAutomount, ReportsRecordRemainingAfterShareRemoval) {
  answerRead(sharePoint());
  answerWritten(kNotShared);
  answerRecord("/Network/a", "url", url("home"));
  EXPECT_EQ(run({"share", "remove", folder}), 1);
  EXPECT_EQ(out_, "/srv/home is no longer shared.\n");
  EXPECT_EQ(error_, "keelhouse: the record " + name_ +
                        " is on /LDAP/site still, and clients go on mounting /srv/home\nDelete it: "
                        "keelhouse record delete mounts " +
                        name_ + " --node /LDAP/site --admin USER\n");
}

TEST_F(ShareAutomount, ReportsUnknownRecordStateAfterShareRemoval) {
  answerRead(sharePoint());
  answerWritten(kNotShared);
  answerStatus(110);
  EXPECT_EQ(run({"share", "remove", folder}), 1);
  EXPECT_EQ(out_, "/srv/home is no longer shared.\n");
  EXPECT_THAT(error_, StartsWith("keelhouse: whether the record " + name_ +
                                 " is on /LDAP/site still cannot be seen: Connection timed out"));
}

TEST_F(ShareAutomount, RefusedCredentialsKeepShare) {
  answerRead(sharePoint());
  answerStatus(13);
  const PasswordPipe pipe("wrong");
  EXPECT_EQ(run({"share", "remove", folder, "--admin", "joe", "--password-fd", pipe.word()}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, StartsWith("keelhouse: the directory node /LDAP/site refuses joe"));
  EXPECT_EQ(asked(), 2U);
}

TEST_F(ShareAutomount, RemovalWithoutAutomountSkipsPasswordPrompt) {
  answerRead(R"({"isShared":true})");
  answerWritten(kNotShared);
  EXPECT_EQ(run({"share", "remove", folder, "--admin", "joe", "--password-fd", "9999"}), 0)
      << error_;
}

TEST_F(ShareAutomount, RefusesInvalidOptionsBeforeRequest) {
  const std::string here = makeFolder("a");
  const std::vector<std::vector<std::string>> cases = {
      {"add", here, "--automount", "/a"},
      {"add", here, "--node", "/Local"},
      {"add", here, "--automount", "a", "--node", "/Local"},
      {"add", here, "--automount", "/a", "--node", "Local"},
      {"add", here, "--automount", "/a", "--node", "/Local", "--no-vsp"},
      {"add", here, "--admin", "joe"},
      {"add", here, "--automount", "/a", "--node", "/Local", "--admin", ""},
      {"add", here, "--automount", "/a", "--node", "/Local", "--password-fd", "0"},
      {"add", here, "--automount", "/a", "--node", "/Local", "--password", "x"},
      {"add", here, "--no-automount"},
      {"add", "--nfs", here},
      {"add", "--nfs", here, "--automount", "/a", "--node", "/Local"},
      {"set", here, "--node", "/Local"},
      {"set", here, "--automount", "/a", "--no-automount"},
      {"set", here, "--node", "/Local", "--no-automount"},
      {"set", here, "--admin", "joe", "--password-fd", "-1"},
      {"set", here, "--backup", "--no-backup"},
      {"set", here, "--index", "--no-index"},
      {"remove", here, "--password-fd", "0"},
      {"remove", here, "--automount", "/a"},
  };
  for (auto words : cases) {
    words.insert(words.begin(), "share");
    EXPECT_EQ(run(words), 2) << ::testing::PrintToString(words) << error_;
    EXPECT_THAT(error_, StartsWith("keelhouse: "));
  }
  EXPECT_EQ(asked(), 0U);
}

TEST_F(ShareAutomount, ReportsPathMisplacedAfterNfsOption) {
  EXPECT_EQ(run({"share", "add", "--nfs", "/srv/home", "--automount", "/a", "--node", "/Local"}),
            2);
  EXPECT_THAT(error_, HasSubstr("/srv/home is no NFS client; write the PATH before --nfs"));
}

class ShareBackup : public CommandFixture {};

TEST_F(ShareBackup, SwitchesOnAndOff) {
  for (const bool on : {true, false}) {
    const std::string flag = on ? "true" : "false";
    daemon_.answer(readPart("sharePointRecord", R"({"path":"/srv/a","isShared":true})"));
    daemon_.answer(writtenPart("sharePointRecord",
                               R"({"isShared":true,"isSharedOverVSP":true,"nameOverVSP":"a",)"
                               R"("isBackstowBackup":)" +
                                   flag + "}"));
    EXPECT_EQ(run({"share", "set", "/srv/a", on ? "--backup" : "--no-backup"}), 0) << error_;
    EXPECT_EQ(error_, "");
    EXPECT_THAT(body(asked() - 1), HasSubstr(R"("sharePointRecord":{"isBackstowBackup":)" + flag +
                                             R"(,"path":"/srv/a"})"));
  }
}

TEST_F(ShareBackup, ReportsDaemonIgnoringChange) {
  daemon_.answer(readPart("sharePointRecord", R"({"path":"/srv/a","isShared":true})"));
  daemon_.answer(writtenPart("sharePointRecord", R"({"isShared":true})"));
  EXPECT_EQ(run({"share", "set", "/srv/a", "--backup"}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: its use for backups is still off\n"));
}

TEST_F(ShareBackup, NotesMissingAdvertisementWithoutVsp) {
  daemon_.answer(readPart("sharePointRecord", R"({"path":"/srv/a","isShared":true})"));
  daemon_.answer(writtenPart("sharePointRecord", R"({"isShared":true,"isBackstowBackup":true})"));
  EXPECT_EQ(run({"share", "set", "/srv/a", "--backup"}), 0);
  EXPECT_THAT(error_, StartsWith("keelhouse: note: it is not advertised"));
}

TEST_F(ShareBackup, CombinesWithIndexingInOneChange) {
  daemon_.answer(readPart("sharePointRecord", R"({"path":"/srv/a","isShared":true})"));
  daemon_.answer(writtenPart("sharePointRecord", R"({"isShared":true,"isIndexingEnabled":false})"));
  EXPECT_EQ(run({"share", "set", "/srv/a", "--no-backup", "--index"}), 1);
  EXPECT_THAT(body(1), HasSubstr(R"("isBackstowBackup":false,"isIndexingEnabled":true)"));
  EXPECT_THAT(error_, StartsWith("keelhouse: its indexing is still off\n"));
}

}  // namespace
}  // namespace paddock::keelhouse
