// Immutable snapshot of all metadata stores of the database.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "platform/linux/database/sqlite.h"
#include "platform/linux/database/sqlite_file.h"
#include "platform/metadata_stores.h"

namespace paddock {

class StoredMetadata {
 public:
  // No stores.
  StoredMetadata() = default;
  // Those of the open database. Throws DirectoryError.
  explicit StoredMetadata(SqliteConnection& connection);

  const StorePaths& paths() const { return paths_; }
  // Null when the path has no store.
  const Dictionary* attributes(const std::string& path) const;

 private:
  using Attributes = std::unordered_map<std::string, Dictionary>;
  explicit StoredMetadata(Attributes attributes);
  static Attributes read(SqliteConnection& connection);
  static std::vector<std::string> pathsOf(const Attributes& attributes);

  Attributes attributes_;
  StorePaths paths_;
};

// The file format of the metadata stores: docs/formats/metadata-stores.md.
const SqliteFormat& metadataStoreFormat();

}  // namespace paddock
