#include "platform/linux/process/case_fold.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "base/text.h"

namespace paddock {

namespace {

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

bool isAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace

std::string caseFold(std::string_view text) {
  if (isAscii(text)) return asciiLower(text);
  utf8proc_uint8_t* result = nullptr;
  const utf8proc_ssize_t length =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                   static_cast<utf8proc_ssize_t>(text.size()), &result, UTF8PROC_CASEFOLD);
  const std::unique_ptr<utf8proc_uint8_t, Free> owner(result);
  if (length == UTF8PROC_ERROR_NOMEM) throw std::bad_alloc();
  if (length < 0) return std::string(text);
  return {reinterpret_cast<const char*>(result), static_cast<std::size_t>(length)};
}

std::string caseFoldVersion() { return utf8proc_unicode_version(); }

}  // namespace paddock
