#include "platform/directory.h"

namespace paddock {

namespace {
constexpr const char* kStatusKey = "status";
}  // namespace

DirectoryError::DirectoryError(Status status, const std::string& description)
    : std::runtime_error(description), userInfo_{{kStatusKey, status}} {}

DirectoryError::DirectoryError(const std::string& description) : std::runtime_error(description) {}

std::optional<Status> DirectoryError::status() const {
  const auto status = userInfo_.integer(kStatusKey);
  if (!status) return std::nullopt;
  return static_cast<Status>(*status);
}

void DirectoryRecord::removeAllAttributesAndValues() {
  for (const std::string& attribute : getAllAttributes()) removeAttribute(attribute);
}

std::optional<std::string> DirectoryNode::getAttributeFirstValue(
    const std::string& attribute) const {
  const Array values = getAttribute(attribute);
  if (values.empty() || values.front().string() == nullptr) return std::nullopt;
  return *values.front().string();
}

}  // namespace paddock
