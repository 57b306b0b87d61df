// The dictionary that the host keeps for one plug-in across requests and restarts.
//
// Every operation takes the context's own small lock for its own duration only, so any thread
// may call any of them; a sequence of calls is not atomic.
//
// Setting the key "contextDirty" to true asks the host to save the context. The host saves it
// without that key and then clears it.
#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "base/value.h"

namespace paddock {

class Context {
 public:
  static constexpr const char* kDirtyKey = "contextDirty";

  // A copy of the value, or null when there is none.
  Value get(const std::string& key) const;
  // A null value removes the key.
  void set(const std::string& key, Value value);
  void remove(const std::string& key);

  // A copy of the whole dictionary.
  Dictionary snapshot() const;
  // Replaces the whole dictionary.
  void replace(Dictionary contents);

  // When "contextDirty" reads as true: clears it and returns a copy without it, otherwise
  // nothing. A host that then fails to save sets the key again.
  std::optional<Dictionary> takeDirty();

 private:
  mutable std::mutex mutex_;
  Dictionary contents_;
};

}  // namespace paddock
