#include "platform/linux/accounts/account_searches.h"

#include <limits>

#include "base/text.h"
#include "platform/directory_values.h"

namespace paddock {

const std::string* firstValue(const Value& answer, const char* attribute) {
  return firstValue(*answer.dictionary(), attribute);
}

std::optional<std::uint32_t> firstId(const Value& answer, const char* attribute) {
  const std::string* text = firstValue(answer, attribute);
  const auto number = text == nullptr ? std::nullopt : parseInteger(*text);
  if (!number || *number < 0 || *number > std::numeric_limits<std::uint32_t>::max())
    return std::nullopt;
  return static_cast<std::uint32_t>(*number);
}

std::optional<Guid> firstGuid(const Value& answer, const char* attribute) {
  const std::string* text = firstValue(answer, attribute);
  return text == nullptr ? std::nullopt : parseGuid(*text);
}

}  // namespace paddock
