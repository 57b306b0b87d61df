// The characters of XML 1.0.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace paddock::wire {

// The offset of the first byte that XML cannot carry: a control other than tab, line feed and
// carriage return, U+FFFE, U+FFFF, or a byte that is not well-formed UTF-8. Absent when there is
// none.
std::optional<std::size_t> findNonXmlByte(std::string_view text);

// The text with its entity and character references resolved: the five predefined entities and
// the characters of XML. Absent when there is another "&".
std::optional<std::string> resolveReferences(std::string_view text);

// The text as the content of an element: markup as entities, a carriage return as a reference (a
// reader would make a line feed of it), bytes that XML cannot carry as \xNN.
void appendXmlText(std::string& out, std::string_view text);

}  // namespace paddock::wire
