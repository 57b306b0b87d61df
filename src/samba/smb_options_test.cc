#include "samba/smb_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace paddock::samba {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

SmbOptions allOptions() {
  SmbOptions options;
  options.readOnly = options.guest = options.hidden = options.recycle = true;
  options.comment = "What we plan";
  options.allowHosts = {"10.0.0.0/8", "EXCEPT", "10.0.0.5"};
  options.parameters = {{"max connections", "5"}, {"veto files", "/*.exe/"}};
  return options;
}

// As a record that has them answers.
Dictionary recordOf(const SmbOptions& options) {
  Dictionary record{{"dsAttrTypeStandard:RecordName", Array{"plans"}}};
  for (const auto& entry : attributesOf(options).attributes) record.set(entry.key, entry.value);
  return record;
}

TEST(SmbOptions, ComeBackFromTheirAttributes) {
  for (const SmbOptions& options : {SmbOptions(), allOptions()}) {
    const ReadOptions read = readOptions(recordOf(options));
    EXPECT_TRUE(read.options == options);
    EXPECT_EQ(read.fault, "");
    EXPECT_EQ(faultOfOptions(read.options), "");
  }
}

TEST(SmbOptions, ComeBackFromTheirDictionary) {
  EXPECT_TRUE(optionsFromDictionary(optionsDictionary(allOptions())).options == allOptions());
  EXPECT_EQ(optionsDictionary(SmbOptions()), Dictionary());
  EXPECT_EQ(optionsDictionary(allOptions()),
            (Dictionary{{"readOnly", true},
                        {"guest", true},
                        {"hidden", true},
                        {"recycle", true},
                        {"comment", "What we plan"},
                        {"allowHosts", Array{"10.0.0.0/8", "EXCEPT", "10.0.0.5"}},
                        {"options", Array{"max connections = 5", "veto files = /*.exe/"}}}));
}

TEST(SmbOptions, ThatAreOffLeaveNoAttribute) {
  const AttributeWrite write = attributesOf(SmbOptions());
  EXPECT_TRUE(write.attributes.empty());
  EXPECT_EQ(write.removals.size(), 7U);
  EXPECT_TRUE(attributesOf(allOptions()).removals.empty());
}

TEST(SmbOptions, ThatCannotBeReadAreAFault) {
  for (const auto& [attribute, value] : std::vector<std::pair<const char*, Value>>{
           {"dsAttrTypeNative:paddock_smb_read_only", Array{"perhaps"}},
           {"dsAttrTypeNative:paddock_smb_guest", Array{Array{}}},
           {"dsAttrTypeNative:paddock_smb_allow_hosts", Array{7}}}) {
    const ReadOptions read = readOptions(Dictionary{{attribute, value}});
    EXPECT_EQ(read.fault, "\"" + std::string(attribute) + "\" cannot be read");
  }
  EXPECT_EQ(optionsFromDictionary({{"readonly", true}}).fault, "\"readonly\" cannot be read");
  EXPECT_NE(optionsFromDictionary({{"comment", true}}).fault, "");
  EXPECT_NE(optionsFromDictionary({{"readOnly", "yes"}}).fault, "");
}

TEST(SmbOptions, BecomeLinesOfTheirSection) {
  EXPECT_EQ(sectionLines(SmbOptions()), "");
  EXPECT_EQ(sectionLines(allOptions()),
            "    comment = What we plan\n"
            "    read only = yes\n"
            "    guest ok = yes\n"
            "    browseable = no\n"
            "    hosts allow = 10.0.0.0/8 EXCEPT 10.0.0.5\n"
            "    vfs objects = recycle acl_xattr\n"
            "    recycle:repository = .recycle/%U\n"
            "    recycle:directory_mode = 1777\n"
            "    recycle:subdir_mode = 0700\n"
            "    recycle:keeptree = yes\n"
            "    recycle:versions = yes\n"
            "    max connections = 5\n"
            "    veto files = /*.exe/\n");
}

TEST(SmbOptions, WithTextThatSambaCannotCarryAreFaulty) {
  for (const char* text : {"a\nroot preexec = /bin/true", "%U's", " a", "a\\", "\"a\"", "\xFF"}) {
    SmbOptions options;
    options.comment = text;
    EXPECT_NE(faultOfOptions(options), "") << text;
    options = {};
    options.parameters = {{"veto files", text}};
    EXPECT_NE(faultOfOptions(options), "") << text;
    options = {};
    options.allowHosts = {text};
    EXPECT_NE(faultOfOptions(options), "") << text;
  }
}

TEST(SmbOptions, NameAParameterOnce) {
  SmbOptions options;
  options.parameters = {{"max connections", "5"}, {"Max Connections", "6"}};
  EXPECT_EQ(faultOfOptions(options), "\"Max Connections\" is there twice");
}

TEST(HostPattern, IsWhatSambaKnowsToCompareHostsWith) {
  for (const char* text :
       {"10.0.0.1", "10.0.0.0/8", "10.0.0.0/255.0.0.0", "10.", "192.168.1.", "fe80::1", "fd00::/8",
        "host", "host-1.example.org", ".example.org", "@admins", "ALL", "LOCAL", "EXCEPT"}) {
    EXPECT_TRUE(isHostPattern(text)) << text;
  }
  for (const char* text :
       {"", "10.0.0.0/33", "10.0.0.0/", "10.0.0.0/-1", "10.0.0", "300.", "1.2.3.4.", "fd00::/129",
        "a b", "a,b", "host.", "a..b", "@", "%U", "a\nb", "a/8", "*", "[a]", "a=b"}) {
    EXPECT_FALSE(isHostPattern(text)) << text;
  }
}

TEST(HostPattern, ExceptStandsBetweenHosts) {
  SmbOptions options;
  options.allowHosts = {"EXCEPT", "10.0.0.1"};
  EXPECT_EQ(faultOfOptions(options), "EXCEPT needs hosts before it");
  options.allowHosts = {"10.0.0.1", "EXCEPT"};
  EXPECT_EQ(faultOfOptions(options), "EXCEPT needs hosts behind it");
}

TEST(Parameter, IsAKeyAndAValue) {
  EXPECT_EQ(parseParameter("max connections = 5"), (Parameter{"max connections", "5"}));
  EXPECT_EQ(parseParameter("  MaxConnections=5 "), (Parameter{"max connections", "5"}));
  EXPECT_EQ(parseParameter("volume = a = b"), (Parameter{"volume", "a = b"}));
  EXPECT_EQ(parseParameter("nothing").key, "");
  EXPECT_EQ(parameterText({"max connections", "5"}), "max connections = 5");
}

TEST(Parameter, DangerousParameterIsRefusedByNameWithReason) {
  for (const auto& [key, reason] : std::vector<std::pair<const char*, const char*>>{
           {"root preexec", "runs a program"},
           {"RootPreExec", "runs a program"},
           {"root\tpre exec", "runs a program"},
           {"exec", "runs a program"},
           {"magic script", "runs a program"},
           {"add share command", "runs a program"},
           {"wide links", "leads out of the folder"},
           {"force user", "acts for somebody else"},
           {"admin users", "acts for somebody else"},
           {"vfs objects", "names modules"},
           {"path", "keelhouse share move"},
           {"directory", "keelhouse share move"},
           {"include", "other text"},
           {"copy", "other text"},
           {"create mask", "beside the folder's list"},
           {"inherit acls", "beside the folder's list"},
           {"read only", "--read-only"},
           {"writable", "--read-only"},
           {"hosts allow", "--allow-hosts"},
           {"acl_xattr:ignore system acls", "is a module's"},
           {"recycle:repository", "is a module's"},
           {"workgroup", "smb.conf"},
           {"frobnicate", "smb.conf"},
           {"", "is missing"}}) {
    EXPECT_THAT(faultOfParameter({key, "1"}), HasSubstr(reason)) << key;
  }
}

TEST(Parameter, ThatIsHarmlessIsLetIn) {
  EXPECT_THAT(faultOfParameter({"veto files", "/*.exe/"}), IsEmpty());
  EXPECT_THAT(faultOfParameter({"ValidUsers", "anna @crew"}), IsEmpty());
  EXPECT_THAT(faultOfParameter({"max connections", "5"}), IsEmpty());
}

TEST(Parameter, WithAValueThatIsNoneIsRefused) {
  EXPECT_EQ(faultOfParameter({"max connections", "abc"}), "takes a number, not abc");
  EXPECT_EQ(faultOfParameter({"max connections", "-1"}), "takes a number, not -1");
  EXPECT_EQ(faultOfParameter({"veto files", ""}), "has no value");
  EXPECT_THAT(faultOfParameter({"veto files", "/a/\n[evil]"}), HasSubstr("line break"));
  EXPECT_THAT(faultOfParameter({"valid users", "%S"}), HasSubstr("percent sign"));
}

TEST(Parameter, IsLetInOrRefusedAndNotBoth) {
  for (const std::string& key : allowedParameters()) {
    for (const std::string& refused : refusedParameters()) {
      EXPECT_NE(parameterKey(key), parameterKey(refused));
    }
  }
}

}  // namespace
}  // namespace paddock::samba
