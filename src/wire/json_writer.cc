#include <array>
#include <charconv>

#include "base/text.h"
#include "wire/base64.h"
#include "wire/json.h"

namespace paddock::wire {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

bool isPlain(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 0x20 && byte < 0x7F && character != '"' && character != '\\';
}

void appendCode(std::string& out, unsigned code) {
  constexpr std::string_view kHexadecimal = "0123456789abcdef";
  out += "\\u";
  for (const unsigned shift : {12U, 8U, 4U, 0U}) out += kHexadecimal[(code >> shift) & 15U];
}

void appendEscape(std::string& out, char character) {
  switch (character) {
    case '"':
      out += "\\\"";
      break;
    case '\\':
      out += "\\\\";
      break;
    case '\b':
      out += "\\b";
      break;
    case '\f':
      out += "\\f";
      break;
    case '\n':
      out += "\\n";
      break;
    case '\r':
      out += "\\r";
      break;
    case '\t':
      out += "\\t";
      break;
    default:
      appendCode(out, static_cast<unsigned char>(character));
  }
}

// The code point of a character of two or three bytes.
unsigned codeOf(std::string_view character) {
  constexpr unsigned kContinued = 0x3F;
  unsigned code =
      static_cast<unsigned char>(character.front()) & (character.size() == 2 ? 31U : 15U);
  for (const char byte : character.substr(1))
    code = code << 6U | (static_cast<unsigned char>(byte) & kContinued);
  return code;
}

// Appends the character that starts at `at`, which is not plain, and moves behind it.
void appendSpecial(std::string& out, std::string_view text, std::size_t& at) {
  const std::size_t size = utf8CharacterSize(text.substr(at));
  if (size == 0) {
    out += kReplacement;
    ++at;
    return;
  }
  const std::string_view character = text.substr(at, size);
  at += size;
  // JSON does not ask for it, but what we write may end on a terminal, and terminals obey these.
  if (size == 1) {
    appendEscape(out, character.front());
  } else if (isUnprintable(character)) {
    appendCode(out, codeOf(character));
  } else {
    out += character;
  }
}

void appendString(std::string& out, std::string_view text) {
  out += '"';
  for (std::size_t at = 0; at < text.size();) {
    std::size_t end = at;
    while (end < text.size() && isPlain(text[end])) ++end;
    out.append(text, at, end - at);
    if (end == text.size()) break;
    at = end;
    appendSpecial(out, text, at);
  }
  out += '"';
}

template <typename Integer>
void appendInteger(std::string& out, Integer number) {
  std::array<char, 24> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  out.append(digits.data(), static_cast<std::size_t>(end - digits.data()));
}

class Writer {
 public:
  Writer(std::string& out, bool pretty) : out_(out), pretty_(pretty) {}

  void write(const Value& value) {
    std::visit([this](const auto& kind) { writeKind(kind); }, value.storage());
  }

 private:
  void writeKind(std::monostate /*null*/) { out_ += "null"; }
  void writeKind(bool value) { out_ += value ? "true" : "false"; }
  void writeKind(std::int64_t number) { appendInteger(out_, number); }
  void writeKind(std::uint64_t number) { appendInteger(out_, number); }
  void writeKind(const std::string& text) { appendString(out_, text); }
  void writeKind(const Data& data) {
    out_ += pretty_ ? R"({"$data": ")" : R"({"$data":")";
    out_ += encodeBase64(data.bytes);
    out_ += "\"}";
  }
  void writeKind(const Array& array) {
    open('[');
    for (const Value& element : array) {
      separate();
      write(element);
    }
    close(']');
  }
  void writeKind(const Dictionary& dictionary) {
    open('{');
    for (const Dictionary::Entry& entry : dictionary) {
      separate();
      appendString(out_, entry.key);
      out_ += pretty_ ? std::string_view(": ") : std::string_view(":");
      write(entry.value);
    }
    close('}');
  }

  void open(char bracket) {
    out_ += bracket;
    ++level_;
    first_ = true;
  }
  void separate() {
    if (!first_) out_ += ',';
    first_ = false;
    breakLine();
  }
  void close(char bracket) {
    --level_;
    if (!first_) breakLine();
    out_ += bracket;
    first_ = false;
  }
  void breakLine() {
    if (!pretty_) return;
    out_ += '\n';
    out_.append(2 * level_, ' ');
  }

  std::string& out_;
  bool pretty_;
  bool first_ = true;
  std::size_t level_ = 0;
};

std::string writeText(const Value& value, bool pretty) {
  std::string text;
  Writer(text, pretty).write(value);
  return text;
}

}  // namespace

std::string writeJson(const Value& value) { return writeText(value, false); }
std::string writeJsonPretty(const Value& value) { return writeText(value, true); }

std::string quoteJson(std::string_view text) {
  std::string quoted;
  appendString(quoted, text);
  return quoted;
}

}  // namespace paddock::wire
