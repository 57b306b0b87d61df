#include "privileges/ace_dictionary.h"

#include <charconv>

#include "base/status.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "privileges/module_logger.h"

namespace paddock {

namespace {

// A number above the signed range, as itself or as its text.
std::optional<std::uint64_t> readLarge(const Value* value) {
  if (value == nullptr) return std::nullopt;
  if (const std::uint64_t* number = value->unsignedInteger()) return *number;
  const std::string* text = value->string();
  if (text == nullptr) return std::nullopt;
  std::uint64_t number = 0;
  const char* end = text->data() + text->size();
  const auto parsed = std::from_chars(text->data(), end, number);
  if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
  return number;
}

}  // namespace

std::uint32_t readBits(const Value* value) {
  if (const auto number = readInteger(value)) return static_cast<std::uint32_t>(*number);
  return static_cast<std::uint32_t>(readLarge(value).value_or(0));
}

std::optional<std::int64_t> readId(const Value* value) {
  if (const auto number = readInteger(value)) return number;
  return readLarge(value) ? std::optional<std::int64_t>(-1) : std::nullopt;
}

int add_perm_if_set(std::uint32_t bitmap, acl::Permset* permset, acl::Permission permission) {
  if ((bitmap & permission) == 0) return 0;
  const int result = services().acl->acl_add_perm(permset, permission);
  if (result != 0) get_logger("acl_add_perm").log(kLogError, sharing_error_string(result));
  return result;
}

int add_flag_if_set(std::uint32_t flags, acl::Flagset* flagset, acl::Flag flag) {
  if ((flags & flag) == 0) return 0;
  const int result = services().acl->acl_add_flag_np(flagset, flag);
  if (result != 0) get_logger("acl_add_flag_np").log(kLogError, sharing_error_string(result));
  return result;
}

}  // namespace paddock
