#include "wire/xml_text.h"

#include <charconv>
#include <cstdint>

#include "base/text.h"

namespace paddock::wire {

namespace {

bool isXmlCharacter(std::uint32_t code) {
  if (code < 0x20) return code == '\t' || code == '\n' || code == '\r';
  if (code >= 0xD800 && code < 0xE000) return false;
  return code != 0xFFFE && code != 0xFFFF && code <= 0x10FFFF;
}

// The bytes of the XML character that starts the text, or 0.
std::size_t xmlCharacterSize(std::string_view text) {
  const std::size_t size = utf8CharacterSize(text);
  if (size == 1 && !isXmlCharacter(static_cast<unsigned char>(text.front()))) return 0;
  const std::string_view character = text.substr(0, size);
  if (character == "\xEF\xBF\xBE" || character == "\xEF\xBF\xBF") return 0;
  return size;
}

void appendUtf8(std::string& out, std::uint32_t code) {
  const auto append = [&out](std::uint32_t byte) { out += static_cast<char>(byte); };
  if (code < 0x80) {
    append(code);
  } else if (code < 0x800) {
    append(0xC0U | (code >> 6U));
    append(0x80U | (code & 0x3FU));
  } else if (code < 0x10000) {
    append(0xE0U | (code >> 12U));
    append(0x80U | ((code >> 6U) & 0x3FU));
    append(0x80U | (code & 0x3FU));
  } else {
    append(0xF0U | (code >> 18U));
    append(0x80U | ((code >> 12U) & 0x3FU));
    append(0x80U | ((code >> 6U) & 0x3FU));
    append(0x80U | (code & 0x3FU));
  }
}

// `digits` of "&#digits;" or "&#xdigits;".
std::optional<std::uint32_t> characterNumber(std::string_view digits) {
  const bool hexadecimal = digits.starts_with('x');
  if (hexadecimal) digits.remove_prefix(1);
  std::uint32_t code = 0;
  const char* end = digits.data() + digits.size();
  const auto [stopped, error] = std::from_chars(digits.data(), end, code, hexadecimal ? 16 : 10);
  if (error != std::errc{} || stopped != end || !isXmlCharacter(code)) return std::nullopt;
  return code;
}

// Appends what the reference `name` (of "&name;") stands for.
bool appendReferenced(std::string& out, std::string_view name) {
  if (name.starts_with('#')) {
    const auto code = characterNumber(name.substr(1));
    if (code) appendUtf8(out, *code);
    return code.has_value();
  }
  const char character = name == "lt"     ? '<'
                         : name == "gt"   ? '>'
                         : name == "amp"  ? '&'
                         : name == "quot" ? '"'
                         : name == "apos" ? '\''
                                          : '\0';
  if (character == '\0') return false;
  out += character;
  return true;
}

void appendHexadecimal(std::string& out, char byte) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  out += "\\x";
  out += kDigits[static_cast<unsigned char>(byte) >> 4U];
  out += kDigits[static_cast<unsigned char>(byte) & 15U];
}

void appendXmlCharacter(std::string& out, std::string_view character) {
  if (character == "<") {
    out += "&lt;";
  } else if (character == ">") {
    out += "&gt;";
  } else if (character == "&") {
    out += "&amp;";
  } else if (character == "\r") {
    out += "&#13;";
  } else {
    out += character;
  }
}

}  // namespace

std::optional<std::size_t> findNonXmlByte(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t size = xmlCharacterSize(text.substr(at));
    if (size == 0) return at;
    at += size;
  }
  return std::nullopt;
}

std::optional<std::string> resolveReferences(std::string_view text) {
  std::string resolved;
  while (true) {
    const std::size_t ampersand = text.find('&');
    resolved += text.substr(0, ampersand);
    if (ampersand == std::string_view::npos) return resolved;
    const std::size_t end = text.find(';', ampersand);
    if (end == std::string_view::npos) return std::nullopt;
    if (!appendReferenced(resolved, text.substr(ampersand + 1, end - ampersand - 1))) {
      return std::nullopt;
    }
    text.remove_prefix(end + 1);
  }
}

void appendXmlText(std::string& out, std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t valid = xmlCharacterSize(text.substr(at));
    if (valid != 0) {
      appendXmlCharacter(out, text.substr(at, valid));
      at += valid;
      continue;
    }
    // A whole character that XML forbids, or one byte that starts no character.
    const std::size_t size = utf8CharacterSize(text.substr(at));
    for (std::size_t end = at + (size == 0 ? 1 : size); at < end; ++at) {
      appendHexadecimal(out, text[at]);
    }
  }
}

}  // namespace paddock::wire
