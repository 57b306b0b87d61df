// Every call of every platform service fails in turn, under every kind of request, and the same
// holds each time: a status that says what failed, complete records, a complete exports file, the
// effects in their order, nothing left behind, and a request that succeeds when it is sent again.
#include <gtest/gtest.h>

#include <algorithm>

#include "fault_sweep.h"
#include "privileges_faults.h"

namespace paddock {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kByHand = "/by/hand *(ro)\n";

// Preparations and requests.

void addSharePoint(ModuleDoubles& doubles, const std::string& name, const std::string& path,
                   Dictionary attributes = {}) {
  attributes.set(schema::kDirectoryPath, path);
  doubles.directory.addRecord("/Local", schema::kSharePoints, name, attributes);
}

// A server with one share point, one hand-written line and one managed line.
void prepareServer(ModuleDoubles& doubles) {
  addSharePoint(doubles, "other", "/srv/other", {{schema::kSmbName, "other"}});
  doubles.files.setFile(kExportsPath, managedBlock({"/srv/other *(ro)"}) + kByHand);
}

Dictionary writeFolder(const std::string& path, const Dictionary& sharePoint) {
  return writing(path, {{"sharePointRecord", sharePoint}});
}

Dictionary newShare(const std::string& path) {
  return {{"path", path},
          {"name", "new"},
          {"nameOverVSP", "vsp"},
          {"nameOverSMB", "smb"},
          {"nameOverFTP", "ftp"},
          {"isSharedOverVSP", true},
          {"nfsExportRecord", exportTo("*", {"rw", "sync"})}};
}

Scenario shareNewFolder() {
  return {"ShareNewFolder", prepareServer, "writeSettings",
          writeFolder("/srv/new", newShare("/srv/new"))};
}

Scenario shareNewFolderWithPrivileges() {
  Scenario scenario = shareNewFolder();
  scenario.name = "ShareNewFolderWithPrivileges";
  scenario.prepare = [](ModuleDoubles& doubles) {
    prepareServer(doubles);
    prepareFolder(doubles, "/srv/new");
  };
  Dictionary configuration = *scenario.request.dictionary("configuration");
  configuration.set("fileAccessPrivs", newPrivileges());
  scenario.request.set("configuration", configuration);
  return scenario;
}

Scenario changeShare() {
  return {"ChangeShare",
          [](ModuleDoubles& doubles) {
            prepareServer(doubles);
            addSharePoint(doubles, "a", "/srv/a",
                          {{schema::kSmbName, "old"},
                           {schema::kIsAutomounted, "0"},
                           {schema::kAutomountRecordName, "stale"}});
            doubles.files.setFile(kExportsPath,
                                  managedBlock({"/srv/other *(ro)", "/srv/a *(ro)"}) + kByHand);
          },
          "writeSettings",
          writeFolder("/srv/a", {{"path", "/srv/a"},
                                 {"nameOverSMB", "changed"},
                                 {"nfsExportRecord", exportTo("10.0.0.0/8", {"rw"})}})};
}

void prepareDeletion(ModuleDoubles& doubles) {
  prepareServer(doubles);
  addSharePoint(doubles, "a", "/srv/a");
  doubles.files.setFile(kExportsPath, managedBlock({"/srv/a *(ro)", "/srv/other *(ro)"}) + kByHand);
}

Scenario deleteShare() {
  return {"DeleteShare", prepareDeletion, "writeSettings",
          writeFolder("/srv/a", {{"isShared", false}})};
}

Scenario deleteShareOfTheSharedFileList() {
  return {"DeleteShareOfTheSharedFileList",
          [](ModuleDoubles& doubles) {
            prepareDeletion(doubles);
            doubles.sharedFiles.insert("file:///srv/a");
          },
          "writeSettings",
          writeFolder("/srv/a", {{"isShared", false}}),
          false,  // deliberate: the first deletion takes the item, the second the record
          "/srv/a",
          "removeRecord a"};
}

Scenario writeBackup() {
  return {"WriteBackup",
          [](ModuleDoubles& doubles) {
            prepareServer(doubles);
            addSharePoint(doubles, "a", "/srv/a",
                          {{schema::kBackstowBackup, "1"},
                           {schema::kBackstowBackupUuid, "FFFFFFFF-0000-4000-8000-000000000000"}});
          },
          "writeSettings", writeFolder("/srv/a", {{"path", "/srv/a"}, {"isBackstowBackup", true}})};
}

Scenario shareReshare() {
  return {"ShareReshare",
          [](ModuleDoubles& doubles) {
            prepareServer(doubles);
            doubles.volumes.mount({"/nfs_reshares/new", "server:/export", "nfs4"});
          },
          "writeSettings", writeFolder("/nfs_reshares/new", newShare("/nfs_reshares/new"))};
}

Scenario deleteReshare() {
  return {"DeleteReshare",
          [](ModuleDoubles& doubles) {
            prepareServer(doubles);
            addSharePoint(doubles, "r", "/nfs_reshares/r",
                          {{schema::kReshareMountName, "server:/export"}});
            doubles.directory.addRecord("/Local", schema::kMounts, "server:/export");
          },
          "writeSettings", writeFolder("/nfs_reshares/r", {{"isShared", "NO"}})};
}

constexpr const char* kSite = "/LDAP/site";

// A node with an administrator, and their credentials in the request.
void prepareSite(ModuleDoubles& doubles) {
  doubles.directory.addNode(kSite, "ReadWrite");
  doubles.directory.addRecord(kSite, "dsRecTypeStandard:Users", "root");
  doubles.directory.setPassword(kSite, "root", "secret");
}

Dictionary withCredentials(Dictionary request) {
  Dictionary configuration = *request.dictionary("configuration");
  configuration.set("dsCredentials", Array{Dictionary{{"nodePath", kSite},
                                                      {"adminUserName", "root"},
                                                      {"adminPassword", "secret"}}});
  request.set("configuration", configuration);
  return request;
}

Scenario automountShare() {
  return {"AutomountShare",
          [](ModuleDoubles& doubles) {
            prepareServer(doubles);
            prepareSite(doubles);
            addSharePoint(doubles, "a", "/srv/a");
          },
          "writeSettings",
          withCredentials(writeFolder("/srv/a", {{"path", "/srv/a"},
                                                 {"nameOverVSP", "a"},
                                                 {"isAutomounted", true},
                                                 {"automountDSPath", kSite},
                                                 {"automountMountPath", "/Network/Servers/"}}))};
}

Scenario deleteAutomountedShare() {
  return {"DeleteAutomountedShare",
          [](ModuleDoubles& doubles) {
            prepareServer(doubles);
            prepareSite(doubles);
            addSharePoint(doubles, "a", "/srv/a", {{schema::kAutomountDsPath, kSite}});
            doubles.directory.addRecord(kSite, schema::kMounts, "server.example:/srv/a");
          },
          "writeSettings", withCredentials(writeFolder("/srv/a", {{"isShared", "NO"}}))};
}

Scenario writeListOfThree() {
  return {"WriteListOfThree",
          [](ModuleDoubles& doubles) {
            prepareDeletion(doubles);
            addSharePoint(doubles, "b", "/srv/b", {{schema::kFtpName, "old"}});
          },
          "writeSettings",
          {{"configuration",
            Dictionary{
                {"sharePointList", Array{newShare("/srv/new"),
                                         Dictionary{{"path", "/srv/b"}, {"nameOverFTP", "changed"}},
                                         Dictionary{{"path", "/srv/a"}, {"isDeleted", true}}}}}}}};
}

Scenario readList() { return {"ReadList", prepareDeletion, "getSharePointList", {}}; }
Scenario readServer() { return {"ReadServer", prepareDeletion, "readSettings", {}}; }
Scenario readFolder() {
  return {"ReadFolder", prepareDeletion, "readSettings", selecting("/srv/a")};
}

Scenario readFolderWithPrivileges() {
  Scenario scenario = readFolder();
  scenario.name = "ReadFolderWithPrivileges";
  scenario.prepare = [](ModuleDoubles& doubles) {
    prepareDeletion(doubles);
    prepareFolder(doubles, "/srv/a");
  };
  return scenario;
}

// What the rules compare.

std::string withoutSuffix(const std::string& name) {
  const std::size_t dash = name.find_last_not_of("0123456789");
  const bool hasSuffix = dash != std::string::npos && name[dash] == '-' && dash + 1 < name.size();
  return hasSuffix ? name.substr(0, dash) : name;
}

bool isName(const std::string& attribute) {
  return attribute == schema::kRecordName || attribute == schema::kVspName ||
         attribute == schema::kSmbName || attribute == schema::kFtpName;
}

bool isAutomountAttribute(const std::string& attribute) {
  return attribute.rfind("dsAttrTypeNative:amt_", 0) == 0;
}

// The attributes that are stored in one step. A lookup that failed counts as a name that is
// taken, so names are compared without the number that this gave them.
Dictionary settingsOf(const Dictionary& attributes) {
  Dictionary settings;
  for (const auto& [attribute, value] : attributes) {
    if (isAutomountAttribute(attribute) || attribute == schema::kBackstowBackupUuid ||
        attribute == schema::kReshareMountName) {
      continue;
    }
    const bool name = isName(attribute);
    settings.set(attribute, name ? Value(withoutSuffix(*value.array()->front().string())) : value);
  }
  return settings;
}

const Dictionary& attributesOf(const Snapshot& snapshot, const std::string& path) {
  static const Dictionary none;
  const auto found = snapshot.sharePoints.find(path);
  return found != snapshot.sharePoints.end() ? found->second : none;
}

Value valueOf(const Dictionary& attributes, const std::string& attribute) {
  const Value* value = attributes.find(attribute);
  return value != nullptr ? *value : Value();
}

std::set<std::string> managedLines(const std::string& exports) {
  std::set<std::string> lines;
  bool managed = false;
  std::size_t start = 0;
  while (start < exports.size()) {
    const std::size_t end = exports.find('\n', start) + 1;
    const std::string line = exports.substr(start, end - start);
    start = end;
    if (line == kBeginLine) {
      managed = true;
    } else if (line == kEndLine) {
      managed = false;
    } else if (managed) {
      EXPECT_TRUE(lines.insert(line).second) << "twice in the exports file: " << line;
    }
  }
  EXPECT_FALSE(managed) << "a block without an end: " << exports;
  return lines;
}

std::string pathOf(const std::string& line) { return line.substr(0, line.find(' ')); }

class ShareRequestFaultSweep : public FaultSweep {
 protected:
  void noteAfter(FaultWorld&) override {
    // The exports file is written again at the end, before the advertisement is renewed.
    const auto renewal =
        std::find(cleanEffects_.begin(), cleanEffects_.end(), std::string("doCommand paddock_vsp"));
    if (renewal != cleanEffects_.end()) cleanEffects_.insert(renewal, "replace /etc/exports");
  }

  void checkException(const Outcome& outcome, const FaultPlan& plan) const;
  void checkWriteReply(const Outcome& outcome, const FaultPlan& plan, FaultWorld& world) const;
  void checkReadReply(const Dictionary& reply, const FaultPlan& plan) const;
  void checkSharePoints(const Outcome& outcome, const FaultPlan& plan) const;
  void checkRecordWithoutSettings(const Dictionary& attributes, const FaultPlan& plan) const;
  void checkOneSharePoint(const std::string& path, const Dictionary& attributes) const;
  void checkExports(const Snapshot& left, FaultWorld& world) const;
  void checkOrder(const Outcome& outcome) const;
  void checkSuccessIsSuccess(const Outcome& outcome, const FaultPlan& plan,
                             FaultWorld& world) const;
  void checkSendingItAgain(FaultWorld& world) const;
  void check(FaultWorld& world, FaultPlan& plan) override;
};

// Only the attributes of the record that a folder's reading found, and the names in its ACL, may
// raise out of the operation.
void ShareRequestFaultSweep::checkException(const Outcome& outcome, const FaultPlan& plan) const {
  if (outcome.reply) return;
  ASSERT_TRUE(outcome.raisedDirectoryError);
  EXPECT_TRUE(plan.failedCall() == "record.getAllAttributesAndValues" ||
              (before_.privileges.acl && mayRaiseWhileReadingAnAcl(plan.failedCall())));
  EXPECT_TRUE(scenario().request.dictionary("optionalArguments")) << "a folder was read";
}

// Those of the privileges go before the others'.
void addPrivilegeStatuses(const std::string& failed, const FaultMode& mode,
                          std::set<std::int64_t>& allowed) {
  for (const auto& [call, statuses] : privilegeStatuses()) {
    if (call == failed || mode.keepFailing) allowed.insert(statuses.begin(), statuses.end());
  }
}

std::set<std::int64_t> allowedWriteStatuses(const std::string& failed, const FaultMode& mode) {
  const Status number = mode.error.value_or(0);
  std::set<std::int64_t> allowed = {0};
  if (failed == "node.findRecordsOfTypes" || failed == "node.findRecord") allowed.insert(number);
  if (failed == "node.newRecord" || failed == "volumeInfo.statfs" ||
      failed == "record.setAttributesAndValues") {
    allowed.insert(CANNOT_SAVE_SHARE_POINT_ERR);
  }
  if (mode.keepFailing) {
    // What fails first need not be what decides.
    allowed.insert(number);
    allowed.insert(CANNOT_SAVE_SHARE_POINT_ERR);
  }
  return allowed;
}

void ShareRequestFaultSweep::checkWriteReply(const Outcome& outcome, const FaultPlan& plan,
                                             FaultWorld& world) const {
  const Dictionary& reply = *outcome.reply;
  const auto status = reply.integer("writeStatus");
  ASSERT_TRUE(status);
  std::set<std::int64_t> allowed = allowedWriteStatuses(plan.failedCall(), mode());
  if (writesPrivileges(scenario())) addPrivilegeStatuses(plan.failedCall(), mode(), allowed);
  EXPECT_TRUE(allowed.contains(*status)) << *status;
  // Where no share point is new, the record that could not be made is another one's.
  const bool makesOne = after_.sharePoints.size() > before_.sharePoints.size();
  if (!mode().keepFailing && ((makesOne && plan.failedCall() == "node.newRecord") ||
                              plan.failedCall() == "record.setAttributesAndValues")) {
    EXPECT_EQ(*status, CANNOT_SAVE_SHARE_POINT_ERR);
  }
  EXPECT_EQ(reply.integer("readStatus"), 0);
  EXPECT_EQ(reply.contains("writeError"), *status != 0);
  EXPECT_NE(reply.dictionary("configuration"), nullptr);
  EXPECT_EQ(reply.size(), *status != 0 ? 4U : 3U);
  EXPECT_LE(world.exceptionLines().size(), 1U);
  EXPECT_EQ(world.errorLines("").size(),
            world.exceptionLines().size() + world.privilegeLines().size());
}

bool concernsOpening(const std::string& call) {
  return call == "directory.openLocal" || call == "session.localNode";
}

bool readQuotasInVain(const Dictionary& reply) {
  const Dictionary* quotas = reply.dictionary("configuration")->dictionary("volumeQuotas");
  return quotas != nullptr && quotas->contains("quotaError");
}

bool isOfPrivileges(const std::string& call) {
  return call.rfind("fileAttributes.", 0) == 0 || call.rfind("acl.", 0) == 0 ||
         call.rfind("membership.", 0) == 0;
}

void ShareRequestFaultSweep::checkReadReply(const Dictionary& reply, const FaultPlan& plan) const {
  const std::string& failed = plan.failedCall();
  const bool folder = scenario().request.contains("optionalArguments");
  Status expected = kSuccess;
  if (folder && mode().error &&
      (concernsOpening(failed) || failed == "node.findRecordsOfTypes" ||
       failed == "node.findRecord")) {
    expected = CANNOT_RETRIEVE_SHARE_POINTS_ERR;
  }
  if (!folder && concernsOpening(failed)) expected = CANNOT_RETRIEVE_SHARE_POINTS_ERR;
  if (mode().keepFailing) {
    // The exports file is read first; a failure of it alone is none, the directory's after it is.
    const bool afterTheDirectory = failed == "volumeInfo.statfs";
    if (failed.rfind("textFiles.", 0) == 0 && (!folder || mode().error)) {
      expected = CANNOT_RETRIEVE_SHARE_POINTS_ERR;
    }
    if (afterTheDirectory) expected = kSuccess;
    // A folder's privileges come before the directory; their own failures are no status.
    if (folder && mode().error && isOfPrivileges(failed))
      expected = CANNOT_RETRIEVE_SHARE_POINTS_ERR;
    // The last step's question whether the folder is there.
    if (failed == "fileAttributes.exists" && readQuotasInVain(reply)) expected = kSuccess;
  }
  if (failed == "quotaControl.quotactl") expected = plan.errorNumber();
  EXPECT_EQ(reply.integer("readStatus"), expected);
  if (scenario().operation == "getSharePointList") {
    EXPECT_EQ(reply.contains("error"), expected != kSuccess);
  }
  if (!plan.fired()) {
    EXPECT_EQ(reply, cleanReply_);
  }
}

void ShareRequestFaultSweep::checkOneSharePoint(const std::string& path,
                                                const Dictionary& attributes) const {
  const Dictionary& old = attributesOf(before_, path);
  const Dictionary& recent = attributesOf(after_, path);
  const Dictionary settings = settingsOf(attributes);
  EXPECT_TRUE(settings == settingsOf(old) || settings == settingsOf(recent))
      << path << " is neither as before nor as after";
  for (const auto& entry : attributes) {
    if (!isAutomountAttribute(entry.key) && entry.key != schema::kReshareMountName) continue;
    EXPECT_TRUE(entry.value == valueOf(old, entry.key) || entry.value == valueOf(recent, entry.key))
        << path << " " << entry.key;
  }
  const Array* uuids = attributes.array(schema::kBackstowBackupUuid);
  if (uuids == nullptr) {
    EXPECT_FALSE(old.contains(schema::kBackstowBackupUuid)) << path << " lost its UUID";
  } else {
    EXPECT_EQ(uuids->size(), 1U);
    EXPECT_EQ(uuids->front().string()->size(), 36U);
    EXPECT_TRUE(recent.contains(schema::kBackstowBackupUuid)) << path;
  }
}

// A record that was made stays, whatever fails behind that. What is no part of the settings is
// written into it all the same.
void ShareRequestFaultSweep::checkRecordWithoutSettings(const Dictionary& attributes,
                                                        const FaultPlan& plan) const {
  EXPECT_TRUE(plan.fired()) << "a record without a path was left behind";
  EXPECT_TRUE(std::any_of(
      after_.sharePoints.begin(), after_.sharePoints.end(),
      [this](const auto& wanted) { return !before_.sharePoints.contains(wanted.first); }))
      << "nothing new was asked for";
  for (const auto& entry : attributes) {
    EXPECT_TRUE(entry.key == schema::kRecordName || entry.key == schema::kBackstowBackupUuid ||
                entry.key == schema::kReshareMountName)
        << entry.key;
  }
}

void ShareRequestFaultSweep::checkSharePoints(const Outcome& outcome, const FaultPlan& plan) const {
  const Snapshot& left = outcome.left;
  for (const auto& [path, attributes] : left.sharePoints) {
    if (path == "(none)") {
      checkRecordWithoutSettings(attributes, plan);
      continue;
    }
    ASSERT_TRUE(before_.sharePoints.contains(path) || after_.sharePoints.contains(path)) << path;
    checkOneSharePoint(path, attributes);
  }
  for (const auto& [path, attributes] : before_.sharePoints) {
    const bool mayGo = !after_.sharePoints.contains(path) || path == scenario().mayGo;
    EXPECT_TRUE(mayGo || left.sharePoints.contains(path)) << path << " was lost";
  }
  for (const std::string& mount : left.mounts) {
    EXPECT_TRUE(before_.mounts.contains(mount) || after_.mounts.contains(mount)) << mount;
  }
  EXPECT_TRUE(left.privileges.mode == before_.privileges.mode ||
              left.privileges.mode == after_.privileges.mode);
  EXPECT_TRUE(left.privileges.acl == before_.privileges.acl ||
              left.privileges.acl == after_.privileges.acl);
  if (!plan.fired()) {
    EXPECT_EQ(left.privileges, after_.privileges);
    EXPECT_EQ(left.sharePoints, after_.sharePoints);
    EXPECT_EQ(left.mounts, after_.mounts);
    EXPECT_EQ(left.exports, after_.exports);
  }
}

void ShareRequestFaultSweep::checkExports(const Snapshot& left, FaultWorld& world) const {
  const std::set<std::string> old = managedLines(before_.exports);
  const std::set<std::string> recent = managedLines(after_.exports);
  std::set<std::string> paths;
  for (const std::string& line : managedLines(left.exports)) {
    EXPECT_TRUE(old.contains(line) || recent.contains(line)) << line;
    EXPECT_TRUE(paths.insert(pathOf(line)).second) << "two lines of " << pathOf(line);
  }
  std::set<std::string> kept;
  for (const std::string& line : recent) kept.insert(pathOf(line));
  for (const std::string& line : old) {
    if (kept.contains(pathOf(line))) {
      EXPECT_TRUE(paths.contains(pathOf(line))) << "lost: " << line;
    }
  }
  EXPECT_EQ(left.exports.substr(left.exports.size() - std::string(kByHand).size()), kByHand);
  const auto* copy = world.doubles.files.find("/etc/exports.before-paddock");
  if (copy != nullptr) {
    EXPECT_EQ(copy->contents, before_.exports);
  }
}

// What was done is a part of what is done when nothing fails, in the same order. A second listing
// in the shared-file list is no part.
void ShareRequestFaultSweep::checkOrder(const Outcome& outcome) const {
  Lines done;
  for (const std::string& effect : outcome.effects) done.push_back(withoutSuffix(effect));
  const auto usual = [&](const std::string& effect) {
    return std::find(cleanEffects_.begin(), cleanEffects_.end(), effect) != cleanEffects_.end();
  };
  auto next = cleanEffects_.begin();
  for (const std::string& effect : done) {
    if (effect == scenario().mayGoBy) continue;
    if (effect.rfind("insertLast ", 0) == 0 && !usual(effect)) continue;
    next = std::find(next, cleanEffects_.end(), effect);
    ASSERT_NE(next, cleanEffects_.end()) << effect << " out of its order";
    ++next;
  }
}

// A write that reports neither a status nor a line in the log has stored what it was asked to.
void ShareRequestFaultSweep::checkSuccessIsSuccess(const Outcome& outcome, const FaultPlan& plan,
                                                   FaultWorld& world) const {
  if (outcome.reply->integer("writeStatus") != 0 || !world.exceptionLines().empty()) return;
  for (const auto& [path, attributes] : after_.sharePoints) {
    if (path == scenario().mayGo) continue;
    EXPECT_EQ(settingsOf(attributesOf(outcome.left, path)), settingsOf(attributes)) << path;
    EXPECT_EQ(attributesOf(outcome.left, path).contains(schema::kBackstowBackupUuid),
              attributes.contains(schema::kBackstowBackupUuid));
    for (const auto& entry : attributesOf(outcome.left, path)) {
      if (!isAutomountAttribute(entry.key)) continue;
      EXPECT_TRUE(attributes.contains(entry.key)) << path << " " << entry.key;
    }
  }
  // The exports file alone may have failed without a trace.
  if (plan.failedCall().rfind("textFiles.", 0) == 0 || mode().keepFailing) return;
  const std::set<std::string> left = managedLines(outcome.left.exports);
  for (const std::string& line : managedLines(after_.exports)) {
    EXPECT_TRUE(left.contains(line)) << "missing: " << line;
  }
}

void ShareRequestFaultSweep::checkSendingItAgain(FaultWorld& world) const {
  // Deliberate: an exception skips the writing of the exports file, so the line of a share point
  // that was deleted before may stay.
  const bool wroteExports = world.exceptionLines().empty();
  FaultPlan none;
  const Outcome again = world.run(none);
  ASSERT_TRUE(again.reply);
  EXPECT_EQ(again.reply->integer("writeStatus"), 0);
  EXPECT_EQ(again.left.privileges, after_.privileges);
  for (const auto& [path, attributes] : after_.sharePoints) {
    EXPECT_EQ(settingsOf(attributesOf(again.left, path)), settingsOf(attributes)) << path;
    EXPECT_EQ(valueOf(attributesOf(again.left, path), schema::kReshareMountName),
              valueOf(attributes, schema::kReshareMountName));
  }
  for (const auto& [path, attributes] : again.left.sharePoints) {
    if (path == "(none)") continue;  // what the first request made
    EXPECT_TRUE(after_.sharePoints.contains(path)) << path << " is still there";
  }
  const std::set<std::string> lines = managedLines(again.left.exports);
  const std::set<std::string> wanted = managedLines(after_.exports);
  EXPECT_TRUE(std::includes(lines.begin(), lines.end(), wanted.begin(), wanted.end()));
  if (wroteExports) {
    EXPECT_EQ(lines, wanted);
  }
}

void ShareRequestFaultSweep::check(FaultWorld& world, FaultPlan& plan) {
  const Outcome outcome = world.run(plan);
  checkException(outcome, plan);
  checkNothingIsHeld(world);
  checkSharePoints(outcome, plan);
  checkExports(outcome.left, world);
  checkOrder(outcome);
  if (!writes()) {
    EXPECT_TRUE(outcome.effects.empty());
    EXPECT_EQ(outcome.left.sharePoints, before_.sharePoints);
    EXPECT_EQ(outcome.left.exports, before_.exports);
    if (outcome.reply) checkReadReply(*outcome.reply, plan);
    return;
  }
  if (outcome.reply) {
    checkWriteReply(outcome, plan, world);
    checkSuccessIsSuccess(outcome, plan, world);
  }
  if (scenario().repeatable) checkSendingItAgain(world);
}

TEST_P(ShareRequestFaultSweep, EveryCallMayFail) {
  EXPECT_GE(failEveryCall().size(), 4U) << "a sweep of nothing";
}

INSTANTIATE_TEST_SUITE_P(Requests, ShareRequestFaultSweep,
                         inEveryMode(shareNewFolder(), shareNewFolderWithPrivileges(),
                                     changeShare(), deleteShare(), deleteShareOfTheSharedFileList(),
                                     writeBackup(), shareReshare(), deleteReshare(),
                                     automountShare(), deleteAutomountedShare(), writeListOfThree(),
                                     readList(), readServer(), readFolder(),
                                     readFolderWithPrivileges()),
                         sweepName);

}  // namespace
}  // namespace paddock
