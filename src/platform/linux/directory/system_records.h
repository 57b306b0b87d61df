// The users and groups of the host as records.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/directory_values.h"

namespace paddock {

// The attributes of one record, RecordName first and RecordType second.
using SystemRecord = std::vector<AttributeChange>;

// Whether the name service has records of the type.
bool isSystemType(const std::string& type);

// All records of the type (see isSystemType), in the order of the name service.
std::vector<SystemRecord> systemRecords(const std::string& type);

// The record of exactly this name.
std::optional<SystemRecord> systemRecordByName(const std::string& type, const std::string& name);

// Whether records of the type can be looked up by the attribute without enumerating them, and then
// the one whose value matches.
bool isSystemKey(const std::string& type, const std::string& attribute);
std::optional<SystemRecord> systemRecordByKey(const std::string& type, const std::string& attribute,
                                              const std::string& value);

}  // namespace paddock
