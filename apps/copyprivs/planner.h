// The changes that an object needs, computed from its state without accessing it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "copyprivs/buffered_object.h"
#include "copyprivs/change_steps.h"
#include "copyprivs/folder.h"
#include "platform/linux/privileges/file_privileges.h"

namespace paddock::copyprivs {

// What to do with an object of some state.
struct Plan {
  // What changes, for reports.
  static constexpr unsigned kOwner = 1;
  static constexpr unsigned kGroup = 2;
  static constexpr unsigned kMode = 4;
  static constexpr unsigned kAcl = 8;

  std::vector<ChangeStep> steps;
  ObjectState after;  // the resulting state
  unsigned changes = 0;
  int error = 0;                // why something cannot be done; the steps do the rest
  bool hasInvalidList = false;  // which is why no entries are set
  Levels::Pointer inside;       // of a folder: the levels of what it holds
};

// For one thread.
class Planner {
 public:
  // `privs` says what is set, without a composite. `privileges` must outlive this object.
  Planner(FilePrivileges& privileges, const std::string& attribute, const PrivsToSet& privs);

  struct Request {
    std::uint32_t what = 0;
    bool refreshes = true;  // whether the list follows owner and mode

    bool isAnything() const { return what != 0 || refreshes; }
  };

  // The plan for an object of the state, to which entries come from `levels` (those of the folder
  // that it is in; null when no entries are set). Valid until the next call.
  const Plan& plan(const ObjectState& state, const Levels::Pointer& levels, const Request& request);

 private:
  struct Kept {
    Levels::Pointer levels;  // part of the key by address, so kept alive
    Plan plan;
  };

  void makeKey(const ObjectState& state, const Levels::Pointer& levels, const Request& request);
  Plan make(const ObjectState& state, const Levels::Pointer& levels, const Request& request);
  Levels::Pointer emptyBelow(const Levels::Pointer& levels);
  void forgetOld();

  const std::string attribute_;
  const PrivsToSet privs_;
  BufferedAttributes attributes_;
  const FileAcls acls_;
  std::unordered_map<std::string, Kept> kept_;
  std::size_t keptBytes_ = 0;
  std::string key_;
  std::chrono::steady_clock::time_point end_;
  unsigned asked_ = 0;
  // The empty level below those that it was asked for last.
  Levels::Pointer above_;
  Levels::Pointer below_;
};

}  // namespace paddock::copyprivs
