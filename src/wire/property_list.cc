#include <algorithm>

#include "wire/base64.h"
#include "wire/property_list.h"
#include "wire/xml_text.h"

namespace paddock::wire {

namespace {

class ListWriter {
 public:
  explicit ListWriter(std::string& out) : out_(out) {}

  void write(const Value& value) {
    std::visit([this](const auto& kind) { writeKind(kind); }, value.storage());
  }

 private:
  void writeKind(std::monostate /*null*/) {}
  void writeKind(bool value) { line(value ? "<true/>" : "<false/>"); }
  void writeKind(std::int64_t number) { element("integer", std::to_string(number)); }
  void writeKind(std::uint64_t number) { element("integer", std::to_string(number)); }
  void writeKind(const std::string& text) { element("string", text); }
  void writeKind(const Data& data) { element("data", encodeBase64(data.bytes)); }
  void writeKind(const Array& array) {
    line("<array>");
    ++level_;
    for (const Value& value : array) write(value);
    --level_;
    line("</array>");
  }
  void writeKind(const Dictionary& dictionary) {
    line("<dict>");
    ++level_;
    for (const Dictionary::Entry& entry : dictionary) {
      element("key", entry.key);
      write(entry.value);
    }
    --level_;
    line("</dict>");
  }

  void indent() { out_.append(2 * level_, ' '); }

  void line(std::string_view tag) {
    indent();
    out_ += tag;
    out_ += '\n';
  }

  void element(std::string_view name, std::string_view text) {
    indent();
    out_ += '<';
    out_ += name;
    out_ += '>';
    appendXmlText(out_, text);
    out_ += "</";
    out_ += name;
    out_ += ">\n";
  }

  std::string& out_;
  std::size_t level_ = 0;
};

}  // namespace

std::string writePropertyList(const Value& value) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";
  ListWriter(text).write(value);
  text += "</plist>\n";
  return text;
}

bool fitsPropertyList(const Value& value) {
  const auto isXml = [](std::string_view text) { return !findNonXmlByte(text); };
  if (const std::string* text = value.string()) return isXml(*text);
  if (const Array* array = value.array())
    return std::all_of(array->begin(), array->end(), fitsPropertyList);
  const Dictionary* dictionary = value.dictionary();
  return dictionary == nullptr ||
         std::all_of(dictionary->begin(), dictionary->end(), [&isXml](const auto& entry) {
           return isXml(entry.key) && fitsPropertyList(entry.value);
         });
}

}  // namespace paddock::wire
