// The form of records on a directory server, and concurrent changes of them by others.
#include <thread>

#include "ldap/ldap_fixture.h"
#include "platform/linux/ldap/ldap_record_format.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class LdapDirectoryRecords : public LdapTest {
 protected:
  // An automount as the module makes it.
  void makeMount() {
    const auto record = node()->newRecord("fileserver:/srv/a", kMounts);
    record->setAttribute("dsAttrTypeStandard:VFSLinkDir", "/Network/Servers/");
    record->setAttribute("dsAttrTypeStandard:VFSType", "url");
    record->setAttribute("dsAttrTypeStandard:VFSOpts", Array{"net", "url==vsp://fileserver/A"});
  }
  std::string entry(const std::string& filter, const std::vector<std::string>& attributes = {}) {
    std::vector<std::string> words{"-b", SlapdServer::kBase, filter};
    words.insert(words.end(), attributes.begin(), attributes.end());
    return slapd().search(words);
  }
  std::unique_ptr<DirectoryRecord> mount() {
    return node()->findRecord("fileserver:/srv/a", kMounts);
  }
};

constexpr const char* kMountDn =
    "paddockKey=dsRecTypeStandard:Mounts/fileserver:/srv/a,ou=paddock,dc=example";

TEST_F(LdapDirectoryRecords, AutomountEntryIsReadableByOtherClients) {
  makeMount();
  const std::string text = entry("(objectClass=paddockMount)");
  EXPECT_THAT(text, HasSubstr(std::string("dn: ") + kMountDn + "\n"));
  EXPECT_THAT(text, HasSubstr("\npaddockType: dsRecTypeStandard:Mounts\n"));
  EXPECT_THAT(text, HasSubstr("\ncn: fileserver:/srv/a\n"));
  EXPECT_THAT(text, HasSubstr("\npaddockVFSLinkDir: /Network/Servers/\n"));
  EXPECT_THAT(text, HasSubstr("\npaddockVFSType: url\n"));
  EXPECT_THAT(text, HasSubstr("\npaddockVFSOpts: net\n"));
  EXPECT_THAT(text, HasSubstr("\npaddockVFSOpts: url==vsp://fileserver/A\n"));
  EXPECT_THAT(text, HasSubstr("\npaddockValue: 3.0 dsAttrTypeStandard:VFSOpts=net\n"));
}

TEST_F(LdapDirectoryRecords, SharePointEntryShowsPathAndNames) {
  node()
      ->newRecord("Docs", kShares)
      ->setAttributesAndValues({{"dsAttrTypeNative:directory_path", "/srv/docs"},
                                {"dsAttrTypeNative:vsp_name", "Docs"},
                                {"dsAttrTypeNative:smb_name", ""},
                                {"dsAttrTypeNative:ftp_name", "docs"},
                                {"dsAttrTypeNative:vsp_shared", "1"}});
  const std::string text = entry("(objectClass=paddockSharePoint)");
  EXPECT_THAT(text, HasSubstr("\npaddockDirectoryPath: /srv/docs\n"));
  EXPECT_THAT(text, HasSubstr("\npaddockVSPName: Docs\n"));
  EXPECT_THAT(text, HasSubstr("\npaddockFTPName: docs\n"));
  EXPECT_THAT(text, Not(HasSubstr("paddockSMBName")));
  EXPECT_EQ(node()->findRecord("Docs", kShares)->getAttribute("dsAttrTypeNative:smb_name"),
            Array{""});
}

TEST_F(LdapDirectoryRecords, ValuesEqualToServerAreAllKept) {
  const Array values{"a b", "a  b", "A B", "", " ", "a b ", "\xC3\xA9", "e\xCC\x81", "E\xCC\x81"};
  const auto record = node()->newRecord("m", kMounts);
  record->setAttribute("dsAttrTypeStandard:VFSOpts", values);
  EXPECT_EQ(record->getAttribute("dsAttrTypeStandard:VFSOpts"), values);
  EXPECT_EQ(node()->findRecord("m", kMounts)->getAttribute("dsAttrTypeStandard:VFSOpts"), values);
}

TEST_F(LdapDirectoryRecords, NamesEqualToServerAreDistinctRecords) {
  const std::vector<std::string> names{"a b",       "a  b", " a b", "a b ",           "\xC3\xA9",
                                       "e\xCC\x81", "a",    "#a",   "a,b+c=d\"<>;\\", "*",
                                       "a)(cn=*",   "/",    "a/b"};
  for (const std::string& name : names) node()->newRecord(name, kShares)->setAttribute("n", name);
  EXPECT_EQ(allNames(*node()), names);
  for (const std::string& name : names) {
    const auto record = node()->findRecord(name, kShares);
    ASSERT_NE(record, nullptr) << name;
    EXPECT_EQ(record->getAttributeFirstValue("n"), name);
    EXPECT_THAT(namesWith(*node(), "n", name), ElementsAre(name));
  }
  for (const std::string& name : names) node()->findRecord(name, kShares)->removeRecord();
  EXPECT_THAT(allNames(*node()), IsEmpty());
}

TEST_F(LdapDirectoryRecords, FilterSyntaxIsPlainText) {
  node()->newRecord("Docs", kShares)->setAttribute("a", "1");
  for (const char* text : {"*", "Doc*", "*)(objectClass=*", "\\2a", "Docs)(|(cn=*"}) {
    EXPECT_EQ(node()->findRecord(text, kShares), nullptr) << text;
    EXPECT_THAT(namesWith(*node(), "a", text), IsEmpty()) << text;
    EXPECT_THAT(namesWith(*node(), text, "1"), IsEmpty()) << text;
    EXPECT_EQ(node()->findRecord("Docs", text), nullptr) << text;
    EXPECT_THAT(allNames(*node(), text), IsEmpty()) << text;
    EXPECT_EQ(node()->findRecord(text, schema::kUsers), nullptr) << text;
    EXPECT_THAT(namesWith(*node(), schema::kGroupMembership, text, schema::kGroups), IsEmpty());
  }
}

TEST_F(LdapDirectoryRecords, AttributesMayHaveAnyNames) {
  const auto record = node()->newRecord("Docs", kShares);
  const std::vector<std::string> names{"=", "a=b", "\\", "\\3d", " ", "cn", "objectClass", "#"};
  for (const std::string& name : names) record->setAttribute(name, "=" + name);
  for (const std::string& name : names) {
    EXPECT_EQ(record->getAttributeFirstValue(name), "=" + name);
    EXPECT_THAT(namesWith(*node(), name, "=" + name), ElementsAre("Docs"));
  }
  EXPECT_EQ(record->getAllAttributes().size(), names.size() + 2);
}

TEST_F(LdapDirectoryRecords, StoresMebibyteValueAndThousandValues) {
  const auto record = node()->newRecord("Docs", kShares);
  const std::string large = std::string(1U << 20U, 'x') + "\xC3\xA9";
  record->setAttribute("large", large);
  EXPECT_EQ(node()->findRecord("Docs", kShares)->getAttributeFirstValue("large"), large);
  EXPECT_THAT(namesWith(*node(), "large", std::string(1U << 20U, 'X') + "\xC3\x89"),
              ElementsAre("Docs"));
  Array many;
  for (int i = 0; i < 1000; ++i) many.emplace_back("value " + std::to_string(i % 700));
  record->setAttribute("many", many);
  EXPECT_EQ(node()->findRecord("Docs", kShares)->getAttribute("many"), many);
  EXPECT_EQ(record->getAttributeFirstValue("large"), large);
  EXPECT_THAT(namesWith(*node(), "many", "VALUE 699"), ElementsAre("Docs"));
}

// --- Entries that others made or changed

TEST_F(LdapDirectoryRecords, ForeignEntryReadsAsRecord) {
  slapd().add(std::string("dn: cn=other:/b,") + SlapdServer::kRecords +
              "\nobjectClass: paddockRecord\nobjectClass: paddockMount\ncn: other:/b\n"
              "paddockType: dsRecTypeStandard:Mounts\npaddockVFSLinkDir: /net\n"
              "paddockVFSType: nfs\n");
  const auto record = node()->findRecord("OTHER:/b", kMounts);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->getAllAttributesAndValues(),
            (Dictionary{{schema::kRecordName, Array{"other:/b"}},
                        {schema::kRecordType, Array{kMounts}},
                        {"dsAttrTypeStandard:VFSLinkDir", Array{"/net"}},
                        {"dsAttrTypeStandard:VFSType", Array{"nfs"}}}));
  EXPECT_THAT(namesWith(*node(), "dsAttrTypeStandard:VFSLinkDir", "/NET", kMounts),
              ElementsAre("other:/b"));
  EXPECT_EQ(raised([&] { node()->newRecord("Other:/B", kMounts); }), EEXIST);
}

TEST_F(LdapDirectoryRecords, ForeignEntryCanBeChangedAndRemoved) {
  slapd().add(std::string("dn: cn=other,") + SlapdServer::kRecords +
              "\nobjectClass: paddockRecord\ncn: other\npaddockType: dsRecTypeStandard:Mounts\n"
              "description: theirs\n");
  const auto record = node()->findRecord("other", kMounts);
  record->setAttribute("dsAttrTypeStandard:VFSOpts", Array{"b", "a"});
  EXPECT_EQ(record->getAttribute("dsAttrTypeStandard:VFSOpts"), (Array{"b", "a"}));
  record->setAttribute(schema::kRecordName, "OTHER");
  EXPECT_EQ(node()->findRecord("other", kMounts)->getAttributeFirstValue(schema::kRecordName),
            "OTHER");
  record->setAttribute(schema::kRecordName, "another");
  EXPECT_THAT(allNames(*node(), kMounts), ElementsAre("another"));
  EXPECT_THAT(entry("(paddockVFSOpts=a)"), HasSubstr("description: theirs"));
  record->removeRecord();
  EXPECT_THAT(allNames(*node(), kMounts), IsEmpty());
}

TEST_F(LdapDirectoryRecords, ForeignChangeOfShownAttributesCounts) {
  makeMount();
  slapd().modify(std::string("dn: ") + kMountDn +
                 "\nchangetype: modify\nreplace: paddockVFSLinkDir\npaddockVFSLinkDir: /new\n-\n"
                 "delete: paddockVFSOpts\n");
  EXPECT_EQ(mount()->getAttribute("dsAttrTypeStandard:VFSLinkDir"), Array{"/new"});
  EXPECT_THAT(mount()->getAttribute("dsAttrTypeStandard:VFSOpts"), IsEmpty());
  EXPECT_THAT(namesWith(*node(), "dsAttrTypeStandard:VFSLinkDir", "/NEW", kMounts),
              ElementsAre("fileserver:/srv/a"));
  EXPECT_THAT(namesWith(*node(), "dsAttrTypeStandard:VFSLinkDir", "/Network/Servers/", kMounts),
              IsEmpty());
  mount()->setAttribute("native", "x");
  EXPECT_EQ(mount()->getAttribute("dsAttrTypeStandard:VFSLinkDir"), Array{"/new"});
  EXPECT_THAT(entry("(objectClass=paddockMount)"), HasSubstr("dsAttrTypeStandard:VFSLinkDir=/new"));
}

TEST_F(LdapDirectoryRecords, MalformedEntryIsNamedAndFailsListing) {
  makeMount();
  const auto record = mount();
  for (const char* wrong : {"nonsense", "1.0 a", "1.0 =x", "x.0 a=x", "1.x a=x", "-1.0 a=x",
                            "1.0 b\\=x", "1.0 b\\zz=x", "99999999999.0 a=x"}) {
    slapd().modify(std::string("dn: ") + kMountDn +
                   "\nchangetype: modify\nadd: paddockValue\npaddockValue: " + wrong + "\n");
    EXPECT_EQ(raised([&] { allNames(*node(), kMounts); }), EIO) << wrong;
    EXPECT_THAT(textRaised([&] { record->getAllAttributes(); }), HasSubstr("fileserver:/srv/a"));
    EXPECT_EQ(raised([&] { record->setAttribute("a", "1"); }), EIO) << wrong;
    EXPECT_THAT(allNames(*node(), kShares), IsEmpty());
    slapd().modify(std::string("dn: ") + kMountDn +
                   "\nchangetype: modify\ndelete: paddockValue\npaddockValue: " + wrong + "\n");
  }
  EXPECT_EQ(allNames(*node(), kMounts).size(), 1U);
}

// --- Sessions beside each other

TEST_F(LdapDirectoryRecords, InterruptedRenameDoesNotBlockNewName) {
  node()->newRecord("old", kShares)->setAttribute("a", "1");
  slapd().modify(std::string("dn: paddockKey=dsRecTypeStandard:SharePoints/old,") +
                 SlapdServer::kRecords +
                 "\nchangetype: modrdn\nnewrdn: paddockKey=dsRecTypeStandard:SharePoints/new\n"
                 "deleteoldrdn: 1\n");
  EXPECT_THAT(allNames(*node()), ElementsAre("old"));
  EXPECT_EQ(raised([&] { node()->newRecord("old", kShares); }), EEXIST);
  node()->newRecord("new", kShares)->setAttribute("a", "2");
  EXPECT_EQ(node()->findRecord("old", kShares)->getAttributeFirstValue("a"), "1");
  EXPECT_EQ(node()->findRecord("new", kShares)->getAttributeFirstValue("a"), "2");
  node()->findRecord("old", kShares)->setAttribute(schema::kRecordName, "third");
  EXPECT_THAT(allNames(*node()), ElementsAre("third", "new"));
}

TEST_F(LdapDirectoryRecords, RenameReplacesInterruptedOne) {
  node()->newRecord("old", kShares);
  node()->newRecord("other", kShares);
  slapd().modify(std::string("dn: paddockKey=dsRecTypeStandard:SharePoints/old,") +
                 SlapdServer::kRecords +
                 "\nchangetype: modrdn\nnewrdn: paddockKey=dsRecTypeStandard:SharePoints/new\n"
                 "deleteoldrdn: 1\n");
  node()->findRecord("other", kShares)->setAttribute(schema::kRecordName, "NEW");
  EXPECT_THAT(allNames(*node()), ElementsAre("old", "NEW"));
}

TEST_F(LdapDirectoryRecords, RecordRenamedByAnotherSessionIsFoundAgain) {
  const auto held = node()->newRecord("Docs", kShares);
  node()->findRecord("Docs", kShares)->setAttribute(schema::kRecordName, "Papers");
  EXPECT_EQ(held->getAttributeFirstValue(schema::kRecordName), "Papers");
  held->setAttribute("a", "1");
  EXPECT_EQ(node()->findRecord("Papers", kShares)->getAttributeFirstValue("a"), "1");
  held->removeRecord();
  EXPECT_THAT(allNames(*node()), IsEmpty());
}

TEST_F(LdapDirectoryRecords, ChangesOfSeveralSessionsAreAllMade) {
  node()->newRecord("Docs", kShares);
  std::vector<std::thread> threads;
  constexpr int kThreads = 4;
  constexpr int kChanges = 5;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread)
    threads.emplace_back([&, thread] {
      const auto record = node()->findRecord("Docs", kShares);
      for (int i = 0; i < kChanges; ++i)
        record->setAttribute(std::to_string(thread) + "." + std::to_string(i), "x");
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(node()->findRecord("Docs", kShares)->getAllAttributes().size(),
            2U + kThreads * kChanges);
}

TEST_F(LdapDirectoryRecords, OnlyOneOfSeveralSessionsGetsAName) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 5;
  for (int i = 0; i < kThreads; ++i) node()->newRecord("own" + std::to_string(i), kShares);
  for (int round = 0; round < kRounds; ++round) {
    const std::string wanted = "wanted" + std::to_string(round);
    std::atomic<int> got{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
      threads.emplace_back([&, thread] {
        const std::string own = "own" + std::to_string(thread);
        const auto record = node()->findRecord(own, kShares);
        const Array names = thread % 2 == 0 ? Array{own, wanted} : Array{own, "x" + own, wanted};
        if (raised([&] { record->setAttribute(schema::kRecordName, names); }) == 0) ++got;
      });
    for (std::thread& thread : threads) thread.join();
    // Of two concurrent attempts, both may back off; never do both succeed.
    EXPECT_LE(got, 1);
    EXPECT_EQ(namesWith(*node(), schema::kRecordName, wanted).size(),
              static_cast<std::size_t>(got));
  }
}

TEST_F(LdapDirectoryRecords, UsersAndGroupsAreNotMadeHere) {
  EXPECT_EQ(raised([&] { node()->newRecord("anna", schema::kUsers); }), EACCES);
  EXPECT_EQ(raised([&] { node()->newRecord("staff", schema::kGroups); }), EACCES);
}

}  // namespace
}  // namespace paddock
