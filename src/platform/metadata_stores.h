// The configuration of the search-indexing service: its metadata stores.
//
// A path has at most one store. A store has attributes, texts by name; the one that is used here
// is the search level. Paths are compared byte by byte: nothing is resolved or normalised.
//
// Operations return 0 or an errno. Errors of a back end that cannot be read or written are passed
// through (EBUSY: locked by another program, EIO: damaged). Thread-safe.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "base/value.h"

namespace paddock {

namespace metadata_store {

// The attribute that holds the search level, and its values.
inline constexpr const char* kSearchLevel = "searchLevel";
inline constexpr const char* kLevelOff = "off";
// File-system attributes are searched; contents are not indexed.
inline constexpr const char* kLevelFSSearchOnly = "fsSearchOnly";
inline constexpr const char* kLevelReadWrite = "readWrite";

// EINVAL for what no store can have: a path that is empty, relative or holds a NUL, an attribute
// without a name, one that is no text, a NUL in either. 0 otherwise.
int argumentError(const std::string& path, const Dictionary& attributes);

}  // namespace metadata_store

// The paths that had a store at one moment. Never changes.
class StorePaths {
 public:
  StorePaths() = default;
  // Precondition: no path comes twice.
  explicit StorePaths(std::vector<std::string> paths);
  StorePaths(const StorePaths&) = delete;
  StorePaths& operator=(const StorePaths&) = delete;

  // In ascending byte order.
  const std::vector<std::string>& all() const { return paths_; }
  // Whether exactly this path is among them, in constant time.
  bool contains(std::string_view path) const { return index_.contains(path); }

 private:
  std::vector<std::string> paths_;
  std::unordered_set<std::string_view> index_;
};

class MetadataStores {
 public:
  virtual ~MetadataStores() = default;
  // The paths that have a store; null on failure. As cheap as one lookup, for any number of stores.
  virtual int copyStorePaths(std::shared_ptr<const StorePaths>& paths) = 0;
  // The attributes of the store at the path; empty on failure. ENOENT when there is none.
  virtual int copyStoreAttributes(const std::string& path, Dictionary& attributes) = 0;
  // Sets these attributes of the store; the others stay. ENOENT when there is none, EINVAL as
  // `argumentError` says. On failure nothing has changed.
  virtual int setStoreAttributes(const std::string& path, const Dictionary& attributes) = 0;
  // EEXIST when the path has a store, EINVAL as `argumentError` says. On failure nothing has
  // changed.
  virtual int createStore(const std::string& path, const Dictionary& attributes) = 0;
};

}  // namespace paddock
