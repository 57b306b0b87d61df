// The keys that a configuration may have.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"

namespace paddock {

enum class KeyKind : std::uint8_t {
  text,
  integer,
  boolean,
  textArray,
  command,  // an array of texts: nothing, or the absolute path of a program and its arguments
  booleanOrPath
};

struct ConfigurationKey {
  std::string_view table;
  std::string_view name;
  KeyKind kind;
  std::int64_t minimum = 0;  // of an integer
  std::int64_t maximum = 0;
  // Returns the problem of a text, or of each text of an array; empty when it is valid.
  std::string_view (*check)(std::string_view text) = nullptr;
  bool required = false;  // in each table of an array of tables
};

// Null for an unknown key.
const ConfigurationKey* findConfigurationKey(std::string_view table, std::string_view name);
// Whether there is a table of this name.
bool isConfigurationTable(std::string_view table);
// Whether the table is an array of tables.
bool isConfigurationTableArray(std::string_view table);
// Describes a contradiction between keys of the table that are valid individually; empty when there
// is none.
std::string contradictionIn(std::string_view table, const Dictionary& keys);
// The required keys of the table.
std::vector<std::string_view> requiredConfigurationKeys(std::string_view table);

}  // namespace paddock
