#include "daemon/running_configuration.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <set>
#include <string_view>
#include <utility>

namespace paddock {
namespace {

constexpr std::array<std::string_view, 6> kLiveTables{"access", "audit", "limits",
                                                      "vsp",    "nfs",   "propagation"};
// It is taken over for callers; sessions on the node keep the group that they were made with.
constexpr const char* kAdminGroup = "access.admin_group";
constexpr const char* kAdminGroupLeft = "access.admin_group (for users who authenticate on /Local)";

bool isLive(std::string_view table) {
  return std::find(kLiveTables.begin(), kLiveTables.end(), table) != kLiveTables.end();
}

std::set<std::string> keysOf(const Dictionary& left, const Dictionary& right) {
  std::set<std::string> keys;
  for (const Dictionary* dictionary : {&left, &right}) {
    for (const auto& entry : *dictionary) keys.insert(entry.key);
  }
  return keys;
}

bool same(const Value* left, const Value* right) {
  return left == nullptr || right == nullptr ? left == right : *left == *right;
}

// An array of tables is one key: its elements have no names of their own that last.
void addChanges(const std::string& table, const Value* before, const Value* after,
                std::vector<std::string>& changes) {
  const auto tableOf = [](const Value* value) {
    const Dictionary* found = value != nullptr ? value->dictionary() : nullptr;
    return found != nullptr ? *found : Dictionary();
  };
  const bool isArray = (before != nullptr && before->array() != nullptr) ||
                       (after != nullptr && after->array() != nullptr);
  if (isArray) {
    if (!same(before, after)) changes.push_back(table);
    return;
  }
  const Dictionary left = tableOf(before);
  const Dictionary right = tableOf(after);
  for (const std::string& key : keysOf(left, right)) {
    if (same(left.find(key), right.find(key))) continue;
    changes.push_back(table);
    changes.back().append(".").append(key);
  }
}

// What can change as the file has it, the rest as it was at start.
Configuration merged(Configuration read, const Dictionary& atStart) {
  Dictionary tree = atStart;
  for (const std::string_view table : kLiveTables) {
    const std::string name(table);
    if (const Value* value = read.tree.find(name)) {
      tree.set(name, *value);
    } else {
      tree.erase(name);
    }
  }
  read.tree = std::move(tree);
  return read;
}

bool contains(const std::vector<std::string>& keys, std::string_view key) {
  return std::find(keys.begin(), keys.end(), key) != keys.end();
}

}  // namespace

Configuration readConfigurationFile(const std::string& file, bool required,
                                    std::vector<ConfigurationProblem>& problems) {
  Configuration configuration = readConfiguration(file, problems);
  if (required && problems.empty() && ::access(file.c_str(), F_OK) != 0) {
    problems.push_back({0, "there is no such file"});
  }
  return configuration;
}

std::vector<std::string> changedKeys(const Dictionary& before, const Dictionary& after, bool live) {
  std::vector<std::string> changes;
  for (const std::string& table : keysOf(before, after)) {
    if (isLive(table) == live) addChanges(table, before.find(table), after.find(table), changes);
  }
  return changes;
}

RunningConfiguration::RunningConfiguration(std::string file, bool required, Configuration read)
    : file_(std::move(file)),
      required_(required),
      atStart_(read.tree),
      current_(std::make_shared<const Configuration>(std::move(read))),
      state_{file_, std::chrono::system_clock::now(), {}, {}, {}} {}

std::shared_ptr<const Configuration> RunningConfiguration::current() const {
  const MutexLock lock(mutex_);
  return current_;
}

ConfigurationState RunningConfiguration::state() const {
  const MutexLock lock(mutex_);
  return state_;
}

ConfigurationState RunningConfiguration::reload() {
  std::vector<ConfigurationProblem> problems;
  Configuration read = readConfigurationFile(file_, required_, problems);
  const MutexLock lock(mutex_);
  state_.read = std::chrono::system_clock::now();
  state_.problems.clear();
  state_.applied.clear();
  for (const auto& problem : problems) state_.problems.push_back(describeProblem(file_, problem));
  if (!problems.empty()) return state_;
  state_.applied = changedKeys(current_->tree, read.tree, true);
  state_.awaitingRestart = changedKeys(atStart_, read.tree, false);
  if (contains(changedKeys(atStart_, read.tree, true), kAdminGroup)) {
    state_.awaitingRestart.insert(state_.awaitingRestart.begin(), kAdminGroupLeft);
  }
  current_ = std::make_shared<const Configuration>(merged(std::move(read), atStart_));
  return state_;
}

}  // namespace paddock
