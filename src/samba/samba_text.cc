#include "samba/samba_text.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>

#include "base/text.h"

namespace paddock::samba {

namespace {

constexpr std::size_t kLongestName = 80;  // [MS-FSCC] 2.1.6, in units of UTF-16
constexpr std::string_view kBlanks = " \t\n\v\f\r";
constexpr std::array<std::string_view, 2> kGlobal{"global", "globals"};
constexpr std::array<std::string_view, 5> kReserved{"homes", "printers", "print$", "ipc$",
                                                    "admin$"};

bool isBlank(char character) { return kBlanks.find(character) != std::string_view::npos; }

bool isLetter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

bool hasBlankAtAnEnd(std::string_view text) {
  return !text.empty() && (isBlank(text.front()) || isBlank(text.back()));
}

bool hasBlanksInARow(std::string_view text) {
  return std::adjacent_find(text.begin(), text.end(), [](char left, char right) {
           return isBlank(left) && isBlank(right);
         }) != text.end();
}

bool hasQuoteAtAnEnd(std::string_view text) { return text.starts_with('"') || text.ends_with('"'); }

// Any letter, because a later Samba may know more of them; "%$(NAME)" is from the environment.
bool hasVariable(std::string_view text) {
  return std::adjacent_find(text.begin(), text.end(), [](char left, char right) {
           return left == '%' && (isLetter(right) || right == '$');
         }) != text.end();
}

// What names and values have in common.
std::string_view faultOfText(std::string_view text) {
  if (!isValidUtf8(text)) return "is not UTF-8";
  if (hasBlankAtAnEnd(text)) return "begins or ends with a blank";
  if (hasBlanksInARow(text)) return "has blanks in a row";
  if (hasQuoteAtAnEnd(text)) return "begins or ends with a quotation mark";
  if (hasVariable(text)) return "has a percent sign that Samba reads as a variable";
  return {};
}

// Calls `use` with each code point of UTF-8 text.
template <typename Use>
void forEachCodePoint(std::string_view text, Use use) {
  while (!text.empty()) {
    utf8proc_int32_t codePoint = 0;
    const auto size = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                       static_cast<utf8proc_ssize_t>(text.size()), &codePoint);
    if (size <= 0) return;
    use(codePoint);
    text.remove_prefix(static_cast<std::size_t>(size));
  }
}

bool hasControlCharacter(std::string_view name) {
  bool found = false;
  forEachCodePoint(name, [&found](utf8proc_int32_t codePoint) {
    found = found || utf8proc_category(codePoint) == UTF8PROC_CATEGORY_CC;
  });
  return found;
}

std::size_t utf16Length(std::string_view name) {
  constexpr utf8proc_int32_t kBeyondOneUnit = 0x10000;
  std::size_t length = 0;
  forEachCodePoint(name, [&length](utf8proc_int32_t codePoint) {
    length += codePoint < kBeyondOneUnit ? 1 : 2;
  });
  return length;
}

template <typename Names>
bool contains(const Names& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

std::string_view faultOfValue(std::string_view text) {
  if (const std::string_view fault = faultOfText(text); !fault.empty()) return fault;
  if (text.find('\0') != std::string_view::npos) return "has a NUL";
  if (text.find('\n') != std::string_view::npos) return "has a line break";
  if (text.ends_with('\\')) return "ends with a backslash";
  return {};
}

std::string_view faultOfShareName(std::string_view name) {
  if (name.empty()) return "is empty";
  if (const std::string_view fault = faultOfText(name); !fault.empty()) return fault;
  if (hasControlCharacter(name)) return "has a control character";
  if (name.find_first_of("[]") != std::string_view::npos) return "has a bracket";
  if (name.find_first_of("/\\") != std::string_view::npos) return "has a slash or backslash";
  if (utf16Length(name) > kLongestName) return "has more than 80 characters";
  if (isReservedShareName(name)) return "is one that Samba keeps for itself";
  return {};
}

// Samba ignores blanks when it checks whether a section is the global one.
bool isReservedShareName(std::string_view name) {
  std::string key = shareNameKey(name);
  if (contains(kReserved, key)) return true;
  key.erase(std::remove(key.begin(), key.end(), ' '), key.end());
  return contains(kGlobal, key);
}

std::string shareNameKey(std::string_view name) {
  std::string key;
  key.reserve(name.size());
  forEachCodePoint(name, [&key](utf8proc_int32_t codePoint) {
    constexpr std::size_t kLongestCharacter = 4;
    std::array<utf8proc_uint8_t, kLongestCharacter> bytes{};
    const auto size = utf8proc_encode_char(utf8proc_tolower(codePoint), bytes.data());
    key.append(reinterpret_cast<const char*>(bytes.data()), static_cast<std::size_t>(size));
  });
  return key;
}

}  // namespace paddock::samba
