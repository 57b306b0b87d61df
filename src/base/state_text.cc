#include "base/state_text.h"

#include <string_view>
#include <type_traits>
#include <variant>

namespace paddock {

namespace {

void append(std::string& text, const Value& value);

// Its length goes before it, so that no two sequences of texts read alike.
void append(std::string& text, char kind, std::string_view bytes) {
  text += kind;
  text += std::to_string(bytes.size());
  text += ':';
  text += bytes;
}

void append(std::string& text, const Array& array) {
  append(text, 'a', std::to_string(array.size()));
  for (const Value& element : array) append(text, element);
}

// Its entries come in the order of their keys.
void append(std::string& text, const Dictionary& dictionary) {
  append(text, 'd', std::to_string(dictionary.size()));
  for (const auto& entry : dictionary) {
    append(text, 'k', entry.key);
    append(text, entry.value);
  }
}

void append(std::string& text, const Data& data) {
  append(text, 'b', std::string(data.bytes.begin(), data.bytes.end()));
}

void append(std::string& text, const Value& value) {
  std::visit(
      [&text](const auto& held) {
        using Held = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<Held, std::monostate>) {
          append(text, 'n', {});
        } else if constexpr (std::is_same_v<Held, bool>) {
          append(text, 't', held ? "1" : "0");
        } else if constexpr (std::is_integral_v<Held>) {
          append(text, 'i', std::to_string(held));
        } else if constexpr (std::is_same_v<Held, std::string>) {
          append(text, 's', held);
        } else {
          append(text, held);
        }
      },
      value.storage());
}

}  // namespace

std::string stateText(const Value& value) {
  std::string text;
  append(text, value);
  return text;
}

}  // namespace paddock
