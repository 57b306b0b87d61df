#include "wire/json.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

#include "base/text.h"
#include "wire/base64.h"
#include "wire/tree_bounds.h"

namespace paddock::wire {

namespace {

// Walks the text and stores in `*place` the parser's position, which its callbacks do not report.
class TrackingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  TrackingIterator(const char* at, const char** place) : at_(at), place_(place) {}
  reference operator*() const { return *at_; }
  TrackingIterator& operator++() {
    *place_ = ++at_;
    return *this;
  }
  TrackingIterator operator++(int) {
    TrackingIterator before = *this;
    ++*this;
    return before;
  }
  friend bool operator==(const TrackingIterator&, const TrackingIterator&) = default;

 private:
  const char* at_;
  const char** place_;
};

// The parser's own text without its name, its position and the piece of input that it repeats.
std::string plainParserText(std::string_view text) {
  if (const auto position = text.find(", column "); position != std::string_view::npos) {
    if (const auto colon = text.find(": ", position); colon != std::string_view::npos) {
      text.remove_prefix(colon + 2);
    }
  }
  return std::string(text.substr(0, text.find("; last read")));
}

// Builds the tree. Open containers stand on a stack of its own, so the thread's stack does not
// grow with the nesting.
class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  TreeBuilder(std::string_view text, std::string& error, const TreeBounds& bounds)
      : text_(text), place_(text.data()), error_(error), meter_(bounds) {}

  // Texts are read into a buffer that grows by doubling, and stay in it.
  bool begin() { return meter_.take(2 * text_.size()) || fail(0, TreeMeter::kNoMemory); }

  const char** place() { return &place_; }
  Value takeRoot() { return std::move(root_); }

  bool null() override {
    if (open_.empty() || open_.back().isArray) {
      return fail(consumed() - 4, "null can only be the value of a member");
    }
    return add(Value());
  }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(number_integer_t value) override { return add(std::int64_t{value}); }
  bool number_unsigned(number_unsigned_t value) override { return add(Value::fromUnsigned(value)); }
  bool number_float(number_float_t /*value*/, const string_t& digits) override {
    return failAtNumber(digits);
  }
  bool string(string_t& value) override { return add(std::move(value)); }
  bool binary(binary_t& /*value*/) override { return false; }  // JSON text has none

  bool start_object(std::size_t /*elements*/) override { return openContainer(false); }
  bool key(string_t& value) override {
    if (!meter_.take(2 * sizeof(Dictionary::Entry))) return fail(consumed(), TreeMeter::kNoMemory);
    open_.back().entries.push_back({std::move(value), Value()});
    return true;
  }
  bool end_object() override {
    std::string repeated;
    auto dictionary = Dictionary::fromEntries(std::move(open_.back().entries), &repeated);
    open_.pop_back();
    if (!dictionary) {
      return fail(consumed() - 1,
                  "the object that ends here has the key " + quoteForMessage(repeated) + " twice");
    }
    if (const std::string* encoded = encodedData(*dictionary)) return addData(*encoded);
    return add(std::move(*dictionary));
  }

  bool start_array(std::size_t /*elements*/) override { return openContainer(true); }
  bool end_array() override {
    Array elements = std::move(open_.back().elements);
    open_.pop_back();
    return add(std::move(elements));
  }

  bool parse_error(std::size_t position, const std::string& lastToken,
                   const nlohmann::detail::exception& exception) override {
    constexpr int kNumberOverflow = 406;
    if (exception.id == kNumberOverflow) return failAtNumber(lastToken);
    return fail(position == 0 ? 0 : position - 1, plainParserText(exception.what()));
  }

 private:
  struct Container {
    bool isArray;
    std::vector<Dictionary::Entry> entries;
    Array elements;
  };

  std::size_t consumed() const { return static_cast<std::size_t>(place_ - text_.data()); }

  bool fail(std::size_t offset, std::string_view what) {
    error_ = describeAt(text_, offset, what);
    return false;
  }

  bool failAtNumber(std::string_view digits) {
    // The parser has read one byte beyond a number, unless the text ended.
    std::size_t end = consumed();
    if (!text_.substr(0, end).ends_with(digits)) --end;
    const bool whole = digits.find_first_of(".eE") == std::string_view::npos;
    return fail(end - digits.size(), whole ? "the number does not fit 64 bits"
                                           : "a number cannot have a fraction or an exponent");
  }

  bool openContainer(bool isArray) {
    if (open_.size() == kMaximumNesting) {
      return fail(consumed() - 1,
                  "nesting is deeper than " + std::to_string(kMaximumNesting) + " levels");
    }
    open_.push_back({isArray, {}, {}});
    return true;
  }

  // The text of {"$data": TEXT}, or null for any other dictionary.
  static const std::string* encodedData(const Dictionary& dictionary) {
    return dictionary.size() == 1 ? dictionary.string("$data") : nullptr;
  }

  bool addData(std::string_view encoded) {
    auto bytes = decodeBase64(encoded);
    if (!bytes) return fail(consumed() - 1, "the text of \"$data\" that ends here is not base64");
    return add(Data{std::move(*bytes)});
  }

  bool add(Value value) {
    if (!meter_.countValue()) return fail(consumed() - 1, meter_.tooMany());
    const bool isElement = !open_.empty() && open_.back().isArray;
    if (isElement && !meter_.take(2 * sizeof(Value))) {
      return fail(consumed() - 1, TreeMeter::kNoMemory);
    }
    if (open_.empty()) {
      root_ = std::move(value);
    } else if (open_.back().isArray) {
      open_.back().elements.push_back(std::move(value));
    } else {
      open_.back().entries.back().value = std::move(value);
    }
    return true;
  }

  std::string_view text_;
  const char* place_;
  std::string& error_;
  TreeMeter meter_;
  Value root_;
  std::vector<Container> open_;
};

}  // namespace

std::optional<Value> parseJson(std::string_view text, std::string& error) {
  return parseJson(text, error, TreeBounds());
}

std::optional<Value> parseJson(std::string_view text, std::string& error,
                               const TreeBounds& bounds) {
  // The parser takes a NUL byte for the end of its input.
  if (const auto nul = text.find('\0'); nul != std::string_view::npos) {
    error = describeAt(text, nul, "a NUL byte");
    return std::nullopt;
  }
  if (text.empty()) text = "";
  TreeBuilder builder(text, error, bounds);
  if (!builder.begin()) return std::nullopt;
  const TrackingIterator first(text.data(), builder.place());
  const TrackingIterator last(text.data() + text.size(), builder.place());
  if (!nlohmann::json::sax_parse(first, last, &builder)) return std::nullopt;
  return builder.takeRoot();
}

std::string describeAt(std::string_view text, std::size_t offset, std::string_view what) {
  const std::string_view before = text.substr(0, std::min(offset, text.size()));
  const auto line = std::count(before.begin(), before.end(), '\n') + 1;
  const std::size_t lastBreak = before.rfind('\n');
  const std::size_t column =
      lastBreak == std::string_view::npos ? before.size() + 1 : before.size() - lastBreak;
  std::string message = "line " + std::to_string(line) + ", column " + std::to_string(column);
  message += ": ";
  message += what;
  return message;
}

std::string quoteForMessage(std::string_view text) {
  constexpr std::size_t kShown = 60;
  const std::string_view shown = utf8Prefix(text, kShown);
  return quoteJson(shown) + (shown.size() < text.size() ? "..." : "");
}

}  // namespace paddock::wire
