// Cache of searches by value, valid as long as the database is unchanged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/value.h"
#include "platform/linux/database/sqlite.h"
#include "platform/linux/database/sqlite_file.h"

namespace paddock {

// Identifies a state of a database's file: its stat(2) data, and the mark of its last commit.
struct DatabaseState {
  SqliteFileIdentity file;
  std::int64_t size = 0;
  std::int64_t modified = 0;  // nanoseconds
  std::int64_t changed = 0;   // nanoseconds
  SqliteConnection::ChangeMark mark{};
  friend bool operator==(const DatabaseState&, const DatabaseState&) = default;

  // Whether every commit changes the mark: not when commits go to a log beside the file.
  bool isTelling() const;
};

// Not thread-safe.
class KeptAnswers {
 public:
  // Maximum number of entries; the next one clears the cache.
  static constexpr std::size_t kCapacity = 1024;
  // Maximum text size of a cached answer, in bytes.
  static constexpr std::size_t kLargest = 4096;

  // A search's types, attribute and value as one text.
  static std::string keyOf(const std::vector<std::string>& types, const std::string& attribute,
                           const std::string& value);

  // The answer cached in this state; nullopt when there is none.
  std::optional<Array> find(const DatabaseState& state, const std::string& key) const;

  // Caches an answer found between two samples of the state, unless the database has changed in
  // between. Answers of another state are dropped.
  void keep(const DatabaseState& before, const DatabaseState& after, const std::string& key,
            const Array& answer);

  void clear() { answers_.clear(); }

 private:
  DatabaseState state_;
  std::unordered_map<std::string, Array> answers_;
};

}  // namespace paddock
