#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/text.h"
#include "platform/directory.h"
#include "platform/linux/ldap/ldap_record_format.h"

namespace {

// Lines "attribute: value", as they stand in LDIF.
paddock::LdapEntry entryOf(const std::string& text) {
  paddock::LdapEntry entry;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    const std::string line = text.substr(start, end - start);
    start = end + 1;
    const std::size_t colon = line.find(": ");
    if (colon == std::string::npos) continue;
    entry.attributes[paddock::asciiLower(line.substr(0, colon))].push_back(line.substr(colon + 2));
  }
  return entry;
}

paddock::LdapEntry asEntry(const paddock::LdapAttributes& attributes) {
  paddock::LdapEntry entry;
  for (const auto& [attribute, values] : attributes)
    if (!values.empty()) entry.attributes[paddock::asciiLower(attribute)] = values;
  return entry;
}

}  // namespace

// An entry that is a record is written as one that reads as the same record, and needs no change.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const auto record = paddock::recordOf(entryOf(std::string(data, data + size)));
    const auto written = paddock::entryOf(record);
    const auto again = paddock::recordOf(asEntry(written));
    const auto attributes = paddock::attributesOf(record);
    const auto same = paddock::attributesOf(again);
    if (attributes.size() != same.size()) std::abort();
    for (std::size_t at = 0; at < same.size(); ++at)
      if (attributes[at].attribute != same[at].attribute ||
          attributes[at].values != same[at].values)
        std::abort();
    if (!paddock::differences(written, paddock::entryOf(again)).empty()) std::abort();
  } catch (const paddock::DirectoryError&) {
    return 0;
  }
  return 0;
}
