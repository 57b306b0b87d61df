#include "keelhouse/directory/record_names.h"

#include <array>
#include <utility>

#include "base/text.h"
#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

namespace {

constexpr std::array<std::pair<const char*, const char*>, 4> kShortTypes = {
    {{"users", "dsRecTypeStandard:Users"},
     {"groups", "dsRecTypeStandard:Groups"},
     {"sharepoints", "dsRecTypeStandard:SharePoints"},
     {"mounts", "dsRecTypeStandard:Mounts"}}};

void addValue(Dictionary& attributes, const std::string& name, std::string_view value) {
  if (attributes.array(name) == nullptr) attributes.set(name, Array{});
  attributes.find(name)->array()->emplace_back(value);
}

}  // namespace

std::string recordType(const std::string& text) {
  for (const auto& [shortForm, type] : kShortTypes) {
    if (text == shortForm) return type;
  }
  if (text.find(':') != std::string::npos && isValidUtf8(text)) return text;
  throw usageFailure("\"" + text +
                     "\" is no record type: users, groups, sharepoints, mounts, or a full name "
                     "such as dsRecTypeStandard:Users");
}

std::string attributeName(const std::string& text) {
  return text.find(':') == std::string::npos ? "dsAttrTypeStandard:" + text : text;
}

Dictionary parseAttributes(const std::vector<std::string>& words) {
  Dictionary attributes;
  for (const std::string& word : words) {
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw usageFailure("\"" + word + "\" is not ATTRIBUTE=VALUE");
    }
    if (!isValidUtf8(word)) throw usageFailure("\"" + word + "\" is not UTF-8");
    addValue(attributes, attributeName(word.substr(0, equals)),
             std::string_view(word).substr(equals + 1));
  }
  return attributes;
}

}  // namespace paddock::keelhouse
