// The plug-ins' contexts on disk: NAME.plist in the daemon's context folder.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "base/file_descriptor.h"
#include "base/value.h"
#include "paddock/context.h"

namespace paddock {

class ContextStore {
 public:
  // Makes the folder when it is missing. Throws std::system_error.
  explicit ContextStore(std::string folder);

  // The saved context of a plug-in; empty when there is none. A damaged file is moved to
  // NAME.plist.damaged, which is logged.
  Dictionary load(const std::string& plugin) const;

  // Saves the context when it is marked as dirty. A failure is logged, once until a save succeeds,
  // and leaves the mark. Calls for one plug-in may overlap; the newest state is what stays.
  void saveIfDirty(const std::string& plugin, Context& context);

 private:
  struct Slot {
    std::mutex mutex;
    bool failed = false;
  };
  Slot& slotOf(const std::string& plugin);

  std::string path_;
  FileDescriptor folder_;
  std::mutex mutex_;
  std::map<std::string, std::unique_ptr<Slot>> slots_;
};

}  // namespace paddock
