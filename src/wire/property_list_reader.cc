#include <algorithm>
#include <charconv>
#include <pugixml.hpp>
#include <utility>
#include <vector>

#include "base/text.h"
#include "wire/base64.h"
#include "wire/json.h"
#include "wire/property_list.h"
#include "wire/tree_bounds.h"
#include "wire/xml_text.h"

namespace paddock::wire {

namespace {

// References stay as they are written (pugi lets unknown ones through; see resolveReferences), and
// what stands outside the root element is kept so that it can be refused.
constexpr unsigned kParseOptions = pugi::parse_doctype | pugi::parse_declaration |
                                   pugi::parse_cdata | pugi::parse_ws_pcdata | pugi::parse_eol |
                                   pugi::parse_wconv_attribute | pugi::parse_fragment;

bool isXmlSpace(std::string_view text) {
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

// What stands in a document type declaration, behind "<!DOCTYPE". See XML 1.0, section 2.8.
class DoctypeText {
 public:
  explicit DoctypeText(std::string_view text) : rest_(text) {}

  // Whether it gives the type "plist" a system identifier, or a public one too, and nothing else.
  bool isIdentifierOfPlist() {
    if (!skip("plist") || !skipSpaces()) return false;
    const bool named =
        skip("SYSTEM") ? readLiteral() : skip("PUBLIC") && readLiteral() && readLiteral();
    skipSpaces();
    return named && rest_.empty();
  }

 private:
  bool skip(std::string_view word) {
    if (!rest_.starts_with(word)) return false;
    rest_.remove_prefix(word.size());
    return true;
  }
  bool skipSpaces() {
    const std::size_t spaces = std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size());
    rest_.remove_prefix(spaces);
    return spaces > 0;
  }
  bool readLiteral() {
    if (!skipSpaces() || rest_.empty() || (rest_.front() != '"' && rest_.front() != '\'')) {
      return false;
    }
    const std::size_t end = rest_.find(rest_.front(), 1);
    if (end == std::string_view::npos) return false;
    rest_.remove_prefix(end + 1);
    return true;
  }

  std::string_view rest_;
};

class ListReader {
 public:
  ListReader(std::string_view text, std::string& error, const TreeBounds& bounds)
      : text_(text), error_(error), bounds_(bounds), meter_(bounds) {}

  std::optional<Value> read() {
    if (!checkSize() || !checkCharacters()) return std::nullopt;
    const pugi::xml_parse_result result =
        document_.load_buffer(text_.data(), text_.size(), kParseOptions, pugi::encoding_utf8);
    if (!result) return fail(static_cast<std::size_t>(result.offset), result.description());
    const auto root = findRoot();
    if (!root) return std::nullopt;
    return readRoot(*root);
  }

 private:
  std::nullopt_t fail(std::size_t offset, std::string_view what) {
    error_ = describeAt(text_, offset, what);
    return std::nullopt;
  }
  std::nullopt_t fail(pugi::xml_node node, std::string_view what) {
    return fail(static_cast<std::size_t>(node.offset_debug()), what);
  }

  // The document is in memory as a whole before a value of it is seen: a copy of the text, a node
  // and the text before it for each tag, and attributes. A key and its value have four tags.
  bool checkSize() {
    constexpr std::size_t kTag = 128;
    constexpr std::size_t kAttribute = 64;
    constexpr std::size_t kTagsOfList = 8;
    constexpr std::size_t kTagsOfValue = 4;
    const auto occurrences = [this](char character) {
      return static_cast<std::size_t>(std::count(text_.begin(), text_.end(), character));
    };
    const std::size_t tags = occurrences('<');
    if (tags > kTagsOfList && (tags - kTagsOfList) / kTagsOfValue > bounds_.values) {
      fail(text_.size(), meter_.tooMany());
      return false;
    }
    const std::size_t document = tags * kTag + occurrences('=') * kAttribute;
    // The copy, and each text by itself, in a buffer that grows by doubling.
    if (meter_.take(3 * text_.size() + document)) return true;
    fail(0, TreeMeter::kNoMemory);
    return false;
  }

  bool checkCharacters() {
    const auto wrong = findNonXmlByte(text_);
    if (!wrong) return true;
    fail(*wrong, utf8CharacterSize(text_.substr(*wrong)) == 0
                     ? "the text is not UTF-8"
                     : "a character that XML does not allow");
    return false;
  }

  bool checkDeclaration(pugi::xml_node declaration) {
    const pugi::xml_attribute encoding = declaration.attribute("encoding");
    const std::string name = asciiLower(encoding.value());
    if (!encoding || name == "utf-8" || name == "us-ascii") return true;
    fail(declaration, "the encoding must be UTF-8");
    return false;
  }

  bool checkDoctype(pugi::xml_node doctype, pugi::xml_node root) {
    if (root || hasDoctype_) {
      fail(doctype, "one document type declaration can stand before the element");
      return false;
    }
    hasDoctype_ = true;
    const auto offset = static_cast<std::size_t>(doctype.offset_debug());
    const bool isApart =
        offset > 0 && offset < text_.size() && isXmlSpace(text_.substr(offset - 1, 1));
    if (isApart && DoctypeText(doctype.value()).isIdentifierOfPlist()) return true;
    fail(doctype, "a document type declaration can only name the identifier of plist");
    return false;
  }

  // The document's only element.
  std::optional<pugi::xml_node> findRoot() {
    pugi::xml_node root;
    for (const pugi::xml_node node : document_.children()) {
      if (node.type() == pugi::node_doctype) {
        if (!checkDoctype(node, root)) return std::nullopt;
        continue;
      }
      if (node.type() == pugi::node_declaration) {
        if (node.previous_sibling()) return fail(node, "an XML declaration must come first");
        if (!checkDeclaration(node)) return std::nullopt;
      } else if (node.type() == pugi::node_element && !root) {
        root = node;
      } else if (node.type() != pugi::node_pcdata || !isXmlSpace(node.value())) {
        return fail(node, "only one element can stand in the document");
      }
    }
    if (!root) return fail(text_.size(), "there is no element");
    return root;
  }

  std::optional<Value> readRoot(pugi::xml_node root) {
    if (std::string_view(root.name()) != "plist") return fail(root, "the element must be plist");
    const pugi::xml_attribute first = root.first_attribute();
    if (first && (std::string_view(first.name()) != "version" || first.next_attribute())) {
      return fail(root, "plist can only have the attribute version");
    }
    const auto elements = childElements(root);
    if (!elements) return std::nullopt;
    if (elements->size() != 1) return fail(root, "plist must hold one element");
    return readValue(elements->front(), 0);
  }

  // The elements inside a node that can hold nothing else.
  std::optional<std::vector<pugi::xml_node>> childElements(pugi::xml_node parent) {
    std::vector<pugi::xml_node> elements;
    for (const pugi::xml_node node : parent.children()) {
      if (node.type() == pugi::node_element) {
        if (node.first_attribute()) return fail(node, "an element with an attribute");
        elements.push_back(node);
      } else if (node.type() != pugi::node_pcdata || !isXmlSpace(node.value())) {
        return fail(node, "text between elements");
      }
    }
    return elements;
  }

  // The text inside a node that can hold nothing else. Comments split it into several nodes.
  std::optional<std::string> textOf(pugi::xml_node node) {
    std::string text;
    for (const pugi::xml_node part : node.children()) {
      if (part.type() == pugi::node_cdata) {
        text += part.value();
      } else if (part.type() == pugi::node_pcdata) {
        const auto resolved = resolveReferences(part.value());
        if (!resolved) return fail(part, "an entity that is not defined");
        text += *resolved;
      } else {
        return fail(part, "an element where only text can stand");
      }
    }
    return text;
  }

  std::optional<Value> readValue(pugi::xml_node node, std::size_t depth) {
    if (!meter_.countValue()) return fail(node, meter_.tooMany());
    if (!meter_.take(2 * sizeof(Dictionary::Entry))) return fail(node, TreeMeter::kNoMemory);
    const std::string_view name = node.name();
    if (name == "dict") return readDictionary(node, depth);
    if (name == "array") return readArray(node, depth);
    if (name == "string") return readString(node);
    if (name == "integer") return readInteger(node);
    if (name == "data") return readData(node);
    if (name == "true" || name == "false") return readBoolean(node, name == "true");
    return fail(node, "the element " + quoteForMessage(name) + " is not known");
  }

  bool checkDepth(pugi::xml_node node, std::size_t depth) {
    if (depth < kMaximumNesting) return true;
    fail(node, "nesting is deeper than " + std::to_string(kMaximumNesting) + " levels");
    return false;
  }

  std::optional<Value> readDictionary(pugi::xml_node node, std::size_t depth) {
    if (!checkDepth(node, depth)) return std::nullopt;
    const auto elements = childElements(node);
    if (!elements) return std::nullopt;
    std::vector<Dictionary::Entry> entries;
    entries.reserve(elements->size() / 2);
    for (std::size_t at = 0; at < elements->size(); at += 2) {
      if (!readEntry(*elements, at, depth, entries)) return std::nullopt;
    }
    std::string repeated;
    auto dictionary = Dictionary::fromEntries(std::move(entries), &repeated);
    if (!dictionary) return fail(node, "the key " + quoteForMessage(repeated) + " is there twice");
    return Value(std::move(*dictionary));
  }

  bool readEntry(const std::vector<pugi::xml_node>& elements, std::size_t at, std::size_t depth,
                 std::vector<Dictionary::Entry>& entries) {
    const pugi::xml_node keyNode = elements[at];
    if (std::string_view(keyNode.name()) != "key") {
      fail(keyNode, "a value without a key");
      return false;
    }
    if (at + 1 == elements.size()) {
      fail(keyNode, "a key without a value");
      return false;
    }
    auto key = textOf(keyNode);
    if (!key) return false;
    auto value = readValue(elements[at + 1], depth + 1);
    if (!value) return false;
    entries.push_back({std::move(*key), std::move(*value)});
    return true;
  }

  std::optional<Value> readArray(pugi::xml_node node, std::size_t depth) {
    if (!checkDepth(node, depth)) return std::nullopt;
    const auto elements = childElements(node);
    if (!elements) return std::nullopt;
    Array array;
    array.reserve(elements->size());
    for (const pugi::xml_node element : *elements) {
      auto value = readValue(element, depth + 1);
      if (!value) return std::nullopt;
      array.push_back(std::move(*value));
    }
    return Value(std::move(array));
  }

  std::optional<Value> readString(pugi::xml_node node) {
    auto text = textOf(node);
    if (!text) return std::nullopt;
    return Value(std::move(*text));
  }

  std::optional<Value> readInteger(pugi::xml_node node) {
    const auto text = textOf(node);
    if (!text) return std::nullopt;
    if (const auto number = parseInteger(*text)) return Value(*number);
    std::string_view digits = *text;
    if (digits.starts_with('+')) digits.remove_prefix(1);
    std::uint64_t number = 0;
    const char* end = digits.data() + digits.size();
    const auto [stopped, error] = std::from_chars(digits.data(), end, number);
    if (error != std::errc{} || stopped != end) {
      return fail(node, "not a decimal integer of 64 bits");
    }
    return Value::fromUnsigned(number);
  }

  std::optional<Value> readData(pugi::xml_node node) {
    auto text = textOf(node);
    if (!text) return std::nullopt;
    std::erase_if(*text, [](char character) { return isXmlSpace({&character, 1}); });
    auto bytes = decodeBase64(*text);
    if (!bytes) return fail(node, "the data is not base64");
    return Value(Data{std::move(*bytes)});
  }

  std::optional<Value> readBoolean(pugi::xml_node node, bool value) {
    const auto elements = childElements(node);
    if (!elements) return std::nullopt;
    if (!elements->empty()) return fail(node, "a boolean element must be empty");
    return Value(value);
  }

  std::string_view text_;
  std::string& error_;
  const TreeBounds& bounds_;
  TreeMeter meter_;
  bool hasDoctype_ = false;
  pugi::xml_document document_;
};

}  // namespace

std::optional<Value> parsePropertyList(std::string_view text, std::string& error) {
  return parsePropertyList(text, error, TreeBounds());
}

std::optional<Value> parsePropertyList(std::string_view text, std::string& error,
                                       const TreeBounds& bounds) {
  return ListReader(text, error, bounds).read();
}

}  // namespace paddock::wire
