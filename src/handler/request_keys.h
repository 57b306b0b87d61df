// The keys that several operations share, and the folder that a request selects.
#pragma once

#include <string>

#include "base/value.h"

namespace paddock {

inline constexpr const char* kOptionalArgumentsKey = "optionalArguments";
inline constexpr const char* kPathKey = "path";
inline constexpr const char* kConfigurationKey = "configuration";
inline constexpr const char* kSharePointListKey = "sharePointList";
inline constexpr const char* kFileAccessPrivsKey = "fileAccessPrivs";
inline constexpr const char* kVolumeQuotasKey = "volumeQuotas";
inline constexpr const char* kSharePointRecordKey = "sharePointRecord";
inline constexpr const char* kIsSharedKey = "isShared";
inline constexpr const char* kReadStatusKey = "readStatus";
inline constexpr const char* kErrorKey = "error";

// "optionalArguments" -> "path", null when there is none. Points into `request`.
inline const std::string* requestPath(const Dictionary& request) {
  const Dictionary* arguments = request.dictionary(kOptionalArgumentsKey);
  return arguments != nullptr ? arguments->string(kPathKey) : nullptr;
}

// The text of a key; empty where the request has none.
inline std::string textOf(const Dictionary& request, const char* key) {
  const std::string* text = request.string(key);
  return text != nullptr ? *text : std::string();
}

}  // namespace paddock
