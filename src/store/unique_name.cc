#include "store/unique_name.h"

#include <algorithm>

#include "base/text.h"
#include "store/directory_access.h"
#include "store/schema.h"

namespace paddock {

namespace {

constexpr int kLastSuffix = 999;

bool isFree(const std::string& candidate, const std::string& attribute, DirectoryNode& node) {
  DirectoryRecordPtr record;
  const Status status = get_ds_record(attribute, candidate, schema::kSharePoints, record, node);
  return status == kSuccess && record == nullptr;
}

std::string withSuffix(const std::string& baseName, int number, std::size_t maxLength) {
  const std::string suffix = "-" + std::to_string(number);
  const std::size_t room = maxLength > suffix.size() ? maxLength - suffix.size() : 0;
  return std::string(utf8Prefix(baseName, std::min(utf8Length(baseName), room))) + suffix;
}

}  // namespace

std::string unique_share_point_name(const std::string& baseName, const std::string& attribute,
                                    std::size_t maxLength) {
  try {
    const std::shared_ptr<DirectoryNode> node = get_local_node();
    std::string candidate = baseName;
    for (int number = 1; !isFree(candidate, attribute, *node); ++number) {
      candidate = withSuffix(baseName, number, maxLength);
      // Deliberate: the last candidate is returned untested.
      if (number == kLastSuffix) return candidate;
    }
    return candidate;
  } catch (...) {
    return baseName;
  }
}

}  // namespace paddock
