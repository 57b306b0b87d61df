#include "daemon/http/media_type.h"

#include <string>

#include "base/text.h"

namespace paddock {
namespace {

constexpr std::string_view kJson = "application/json";
constexpr std::string_view kPropertyList = "application/x-plist";
constexpr std::string_view kForm = "application/x-www-form-urlencoded";
constexpr std::string_view kBlanks = " \t";

// The type without its parameters, in lower case.
std::string bareType(std::string_view text) {
  text = text.substr(0, text.find(';'));
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return asciiLower(text.substr(first, text.find_last_not_of(kBlanks) - first + 1));
}

}  // namespace

std::optional<BodyForm> formOfContentType(std::string_view header) {
  const std::string type = bareType(header);
  if (type.empty() || type == kJson || type == kForm) return BodyForm::json;
  if (type == kPropertyList) return BodyForm::propertyList;
  return std::nullopt;
}

BodyForm formOfAccept(std::string_view header) {
  while (!header.empty()) {
    const std::size_t comma = header.find(',');
    const std::string type = bareType(header.substr(0, comma));
    if (type == kPropertyList) return BodyForm::propertyList;
    if (type == kJson) return BodyForm::json;
    if (comma == std::string_view::npos) break;
    header.remove_prefix(comma + 1);
  }
  return BodyForm::json;
}

std::string_view contentTypeOf(BodyForm form) {
  return form == BodyForm::json ? kJson : kPropertyList;
}

}  // namespace paddock
