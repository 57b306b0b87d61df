// The plug-ins' contexts on disk: NAME.plist in the daemon's context folder.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "base/file_access.h"
#include "base/mutex.h"
#include "base/value.h"
#include "paddock/plugin_request_handler.h"

namespace paddock {

class ContextStore {
 public:
  // Creates the folder when it is missing. Throws std::system_error.
  explicit ContextStore(std::string folder);

  // The saved context of a plug-in; empty when there is none. A damaged file is moved to
  // NAME.plist.damaged, which is logged.
  Dictionary load(const std::string& plugin) const;

  // Saves the context when it is marked as dirty. A failure is logged, once until a save succeeds,
  // and the mark is kept. Calls for one plug-in may overlap; the newest state wins.
  void saveIfDirty(const std::string& plugin, Context& context);

 private:
  struct Slot {
    Mutex mutex;
    bool failed PADDOCK_GUARDED_BY(mutex) = false;
  };
  Slot& slotOf(const std::string& plugin);

  std::string path_;
  FileDescriptor folder_;
  Mutex mutex_;
  std::map<std::string, std::unique_ptr<Slot>> slots_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock
