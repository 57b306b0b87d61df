// Request keys common to several operations, and the folder that a request selects.
#pragma once

#include <string>

#include "base/value.h"
#include "protocol/keys.h"

namespace paddock {

inline constexpr const char* kPathKey = "path";
inline constexpr const char* kConfigurationKey = "configuration";
inline constexpr const char* kErrorKey = "error";

// "optionalArguments" -> "path", null when there is none. Points into `request`.
inline const std::string* requestPath(const Dictionary& request) {
  const Dictionary* arguments = request.dictionary(protocol::kOptionalArguments);
  return arguments != nullptr ? arguments->string(kPathKey) : nullptr;
}

// The text of a key; empty where the request has none.
inline std::string textOf(const Dictionary& request, const char* key) {
  const std::string* text = request.string(key);
  return text != nullptr ? *text : std::string();
}

}  // namespace paddock
