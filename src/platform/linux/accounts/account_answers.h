// What the answers of a directory node say of users and groups.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/guid.h"
#include "base/value.h"

namespace paddock {

// The first value of an attribute of an answer; null when there is none. Points into the answer.
const std::string* firstValue(const Value& answer, const char* attribute);

// The first value as a uid or gid, or as a GUID; nothing when it is none.
std::optional<std::uint32_t> firstId(const Value& answer, const char* attribute);
std::optional<Guid> firstGuid(const Value& answer, const char* attribute);

}  // namespace paddock
