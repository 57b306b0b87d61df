// The environment of a fault sweep: a module on doubles whose Nth call fails, and the invariants
// that hold whatever failed.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "handler/sharing_request_handler.h"
#include "platform/net_service.h"
#include "platform/testing/fault_plan.h"
#include "store/directory_access.h"
#include "support/module_fixture.h"

namespace paddock {

// How a sweep fails calls.
struct FaultMode {
  const char* name;
  std::optional<Status> error;  // absent: directory errors carry no "status"
  bool keepFailing = false;     // every call from the Nth on, not that one alone
};

// A request, what is there before it, and what it may do.
struct Scenario {
  const char* name;
  std::function<void(ModuleDoubles&)> prepare;
  std::string operation;
  Dictionary request;
  // Whether repeating the request without failures always achieves what it requested.
  bool repeatable = true;
  // The path and the removal of a record that stays when nothing fails and may go when something
  // does.
  std::string mayGo = {};
  std::string mayGoBy = {};
  // Whether the first idle tick has come, and nothing failed then.
  bool advertisesFirst = false;
};

// The folder that the request selects; empty for the whole server.
inline std::string folderOf(const Scenario& scenario) {
  const Dictionary* arguments = scenario.request.dictionary("optionalArguments");
  return arguments != nullptr ? *arguments->string("path") : "";
}

inline void PrintTo(const FaultMode& mode, std::ostream* out) { *out << mode.name; }
inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

// The privileges of a folder as it keeps them.
struct FolderPrivileges {
  struct Entry {
    int tag = acl::kUndefinedTag;
    std::optional<Guid> qualifier;
    acl::Permission permissions = 0;
    acl::Flag flags = 0;
    friend bool operator==(const Entry&, const Entry&) = default;
  };
  std::optional<std::string> owner;
  std::optional<std::string> group;
  std::optional<std::uint32_t> mode;
  std::optional<std::vector<Entry>> acl;  // absent: none
  bool invalidAcl = false;
  friend bool operator==(const FolderPrivileges&, const FolderPrivileges&) = default;
};

inline FolderPrivileges privilegesOf(ModuleDoubles& doubles, const std::string& path) {
  const FileAttributes attributes = doubles.tree.attributes(path);
  FolderPrivileges privileges{attributes.ownerName, attributes.groupName, attributes.permissions,
                              std::nullopt, false};
  const StoredAcl* stored = doubles.tree.acl(path);
  if (stored == nullptr) return privileges;
  privileges.acl.emplace();
  privileges.invalidAcl = stored->undecodable;
  for (const acl::Entry& entry : stored->entries) {
    privileges.acl->push_back(
        {entry.tag, entry.qualifier, entry.permset.permissions, entry.flagset.flags});
  }
  return privileges;
}

// The state of the outside world after a request.
struct Snapshot {
  std::map<std::string, Dictionary> sharePoints;  // by path
  std::vector<std::string> creationOrder;         // the share points' paths
  std::set<std::string> mounts;
  std::string exports;
  FolderPrivileges privileges;  // of the request's folder
};

inline Snapshot snapshotOf(ModuleDoubles& doubles, const Scenario& scenario) {
  Snapshot snapshot;
  snapshot.privileges = privilegesOf(doubles, folderOf(scenario));
  for (const auto& record : doubles.records(schema::kSharePoints)) {
    const Array* paths = record.attributes.array(schema::kDirectoryPath);
    const std::string path = paths != nullptr ? *paths->front().string() : "(none)";
    EXPECT_TRUE(snapshot.sharePoints.emplace(path, record.attributes).second)
        << "two records of " << path;
    snapshot.creationOrder.push_back(path);
  }
  for (const auto& record : doubles.records(schema::kMounts)) snapshot.mounts.insert(record.name);
  snapshot.exports = doubles.files.contents(kExportsPath);
  return snapshot;
}

// A run of one scenario.
struct Outcome {
  std::optional<Dictionary> reply;  // absent when an exception left the operation
  bool raisedDirectoryError = false;
  std::vector<std::string> effects;  // what was changed, in order, as "operation subject"
  Snapshot left;
  // The TXT records of the services that are advertised, before the request and after it.
  std::vector<std::vector<std::string>> advertisedBefore;
  std::vector<std::vector<std::string>> advertised;
};

// The module on fresh doubles, as a scenario prepares them.
class FaultWorld {
 public:
  explicit FaultWorld(const Scenario& scenario) : scenario_(scenario) {
    resetSharedExportsParserForTesting();
    scenario.prepare(doubles);
  }
  FaultWorld(const FaultWorld&) = delete;
  FaultWorld& operator=(const FaultWorld&) = delete;
  ~FaultWorld() { resetSharedExportsParserForTesting(); }

  // Only calls that the plan lets through reach the trace.
  const Outcome& run(FaultPlan& plan) {
    ServiceTrace trace;
    const ForwardingServices traced(doubles.aggregate(), trace);
    const ForwardingServices faulty(traced.services(), plan);
    const ServicesGuard guard(faulty.services());
    SharingRequestHandler handler;
    handler.init();
    if (scenario_.advertisesFirst) tickUntouched(handler);
    Outcome& outcome = last_.emplace();
    outcome.advertisedBefore = advertised();
    try {
      outcome.reply = handler.performOperation(scenario_.operation, scenario_.request);
    } catch (const DirectoryError&) {
      outcome.raisedDirectoryError = true;
    } catch (const std::exception& error) {
      ADD_FAILURE() << "left the operation: " << error.what();
    }
    outcome.effects = trace.sequence(
        {"newRecord", "removeRecord", "setAttribute", "removeAttribute", "setAttributesAndValues",
         "insertLast", "removeItem", "replace", "doCommand", "run", "applyAttributes",
         "acl_set_file", "removeFile", "stop", "publish"});
    outcome.left = snapshotOf(doubles, scenario_);
    outcome.advertised = advertised();
    return outcome;
  }
  // What became of the last run.
  const Outcome& last() const { return *last_; }

  // The error lines that begin with the text.
  std::vector<std::string> errorLines(const std::string& beginning) const {
    std::vector<std::string> texts;
    for (const auto& line : doubles.logger.lines()) {
      const bool wanted = line.text.rfind(beginning, 0) == 0;
      if (line.priority == kLogError && wanted) texts.push_back(line.text);
    }
    return texts;
  }
  // Those of an exception that ended the writing of the share points.
  std::vector<std::string> exceptionLines() const {
    return errorLines("paddock_sharing write_sharepoints exception: ");
  }
  // Those of reading and writing privileges.
  std::vector<std::string> privilegeLines() const { return errorLines("paddock_sharing:"); }

  ModuleDoubles doubles;

 private:
  void tickUntouched(SharingRequestHandler& handler) {
    const ServicesGuard guard(doubles.aggregate());
    handler.doIdleAtCount(1);
  }

  std::vector<std::vector<std::string>> advertised() const {
    std::vector<std::vector<std::string>> records;
    for (const auto& service : doubles.netServices.published()) {
      std::vector<std::string>& strings = records.emplace_back();
      if (service.txtRecord) stringsOfTxtRecord(*service.txtRecord, strings);
    }
    return records;
  }

  const Scenario& scenario_;
  std::optional<Outcome> last_;
};

}  // namespace paddock
