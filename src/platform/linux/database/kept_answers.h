// Answers of searches by value, kept as long as the database is as it was when they were found.
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

// Tells one state of a database's file from the one before: what stat(2) says of it, and the mark
// of its last commit.
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

// One thread at a time.
class KeptAnswers {
 public:
  // How many answers are kept; the next one drops them all.
  static constexpr std::size_t kCapacity = 1024;
  // The text of an answer that is kept, in bytes.
  static constexpr std::size_t kLargest = 4096;

  // A search's types, attribute and value as one text.
  static std::string keyOf(const std::vector<std::string>& types, const std::string& attribute,
                           const std::string& value);

  // The answer that was kept in this state; absent when there is none.
  std::optional<Array> find(const DatabaseState& state, const std::string& key) const;

  // Keeps an answer that was found between two looks at the state, unless the database has changed
  // meanwhile. Answers of another state are dropped.
  void keep(const DatabaseState& before, const DatabaseState& after, const std::string& key,
            const Array& answer);

  void clear() { answers_.clear(); }

 private:
  DatabaseState state_;
  std::unordered_map<std::string, Array> answers_;
};

}  // namespace paddock
