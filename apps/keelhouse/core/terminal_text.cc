#include "keelhouse/core/terminal_text.h"

namespace paddock::keelhouse {

namespace {

int byteAt(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : -1;
}

}  // namespace

void ForeignLineBreaks::add(std::string_view text) {
  isBare_ = isBare_ || text == "\n";
  for (std::size_t at = text.find('\n'); at != std::string_view::npos;
       at = text.find('\n', at + 1)) {
    if (at > 0) before_.insert(byteAt(text, at - 1));
    after_.insert(byteAt(text, at + 1));
  }
}

void ForeignLineBreaks::add(const Value& value) {
  if (const std::string* text = value.string()) {
    // Lines of files and logs come with their end.
    add(std::string_view(*text).substr(0, text->size() - (text->ends_with('\n') ? 1 : 0)));
  }
  if (const Dictionary* dictionary = value.dictionary()) add(*dictionary);
  if (const Array* array = value.array()) {
    for (const Value& element : *array) add(element);
  }
}

void ForeignLineBreaks::add(const Dictionary& dictionary) {
  for (const auto& [key, value] : dictionary) {
    add(std::string_view(key));
    add(value);
  }
}

std::string ForeignLineBreaks::escape(std::string_view text) const {
  std::string escaped;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool isForeign = isBare_ || (at > 0 && before_.contains(byteAt(text, at - 1))) ||
                           after_.contains(byteAt(text, at + 1));
    if (text[at] == '\n' && isForeign) {
      escaped += "\\x0A";
    } else {
      escaped += text[at];
    }
  }
  return escaped;
}

}  // namespace paddock::keelhouse
