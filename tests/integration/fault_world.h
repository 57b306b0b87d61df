// What a fault sweep runs on: a module on doubles whose Nth call fails, and the rules that hold
// whatever failed.
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
#include "platform/testing/fault_plan.h"
#include "platform/testing/faulty_services.h"
#include "store/schema.h"
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
  // Whether the request once more, with nothing failing, always ends in what it asked for.
  bool repeatable = true;
  // The path and the removal of a record that stays when nothing fails and may go when something
  // does.
  std::string mayGo = {};
  std::string mayGoBy = {};
};

inline void PrintTo(const FaultMode& mode, std::ostream* out) { *out << mode.name; }
inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

// What is left of the outside world after a request.
struct Snapshot {
  std::map<std::string, Dictionary> sharePoints;  // by path
  std::vector<std::string> creationOrder;         // the share points' paths
  std::set<std::string> mounts;
  std::string exports;
};

inline Snapshot snapshotOf(ModuleDoubles& doubles) {
  Snapshot snapshot;
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
  Outcome run(FaultPlan& plan) {
    ServiceTrace trace;
    TracedServices traced(doubles.services(), trace);
    const FaultyServices faulty(traced.services(), plan);
    const ServicesGuard guard(faulty.services());
    SharingRequestHandler handler;
    handler.init();
    Outcome outcome;
    try {
      outcome.reply = handler.performOperation(scenario_.operation, scenario_.request);
    } catch (const DirectoryError&) {
      outcome.raisedDirectoryError = true;
    } catch (const std::exception& error) {
      ADD_FAILURE() << "left the operation: " << error.what();
    }
    outcome.effects = trace.sequence({"newRecord", "removeRecord", "setAttribute",
                                      "removeAttribute", "setAttributesAndValues", "insertLast",
                                      "removeItem", "replace", "doCommand"});
    outcome.left = snapshotOf(doubles);
    return outcome;
  }

  std::vector<std::string> errorLines() const {
    std::vector<std::string> texts;
    for (const auto& line : doubles.logger.lines()) {
      if (line.priority == kLogError) texts.push_back(line.text);
    }
    return texts;
  }

  ModuleDoubles doubles;

 private:
  const Scenario& scenario_;
};

}  // namespace paddock
