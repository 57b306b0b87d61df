// The attributes of a directory server that publish some of a record's values: values that a server
// may consider equal, or may reject, are omitted.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace paddock {

struct LdapMirror {
  std::string_view attribute;  // of the record
  std::string_view shown;      // of the entry
};

// Those of a record of the type, RecordName first.
const std::vector<LdapMirror>& mirrorsOf(std::string_view type);
// The auxiliary class that an entry needs for them; empty: none.
std::string_view mirrorClassOf(std::string_view type);
// All that entries may have.
std::vector<std::string> mirrorAttributes();

// The values that are shown, in no particular order.
std::vector<std::string> shownValues(const std::vector<std::string>& values);
// Whether `shown` is what `shownValues` of the values is, in any order.
bool isShown(const std::vector<std::string>& values, const std::vector<std::string>& shown);

}  // namespace paddock
