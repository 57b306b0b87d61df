#include "exports/exports_entry.h"

#include <algorithm>

namespace paddock {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::size_t kEscapeLength = 4;

// How many characters stand before the first quote, backslash or white space.
std::size_t plainLength(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && text[length] != '"' && text[length] != '\\' &&
         !isExportsSpace(text[length])) {
    ++length;
  }
  return length;
}

bool isOctal(char character, char highest) { return character >= '0' && character <= highest; }

}  // namespace

bool isExportsSpace(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

bool appendExportsCharacter(char character, std::size_t limit, std::string& word) {
  // The escape's own characters take up room until it is complete.
  if (word.size() > limit) return false;
  word += character;
  if (word.size() < kEscapeLength) return true;
  const char* tail = word.data() + word.size() - kEscapeLength;
  if (tail[0] != '\\' || !isOctal(tail[1], '3') || !isOctal(tail[2], '7') ||
      !isOctal(tail[3], '7')) {
    return true;
  }
  const int code = (tail[1] - '0') * 64 + (tail[2] - '0') * 8 + (tail[3] - '0');
  word.resize(word.size() - kEscapeLength);
  word += static_cast<char>(code);
  return true;
}

ExportsTokens::Next ExportsTokens::next(std::size_t limit, std::string& word) {
  word.clear();
  rest_.remove_prefix(std::min(rest_.find_first_not_of(kBlanks), rest_.size()));
  if (rest_.empty() || rest_.front() == '#' || rest_ == "\r") return Next::end;
  // Most words hold neither quotes nor escapes, and are what stands there.
  std::size_t at = plainLength(rest_);
  const bool plain = at == rest_.size() || isExportsSpace(rest_[at]);
  if (plain) {
    word = rest_.substr(0, at);
    rest_.remove_prefix(std::min(at + 1, rest_.size()));
    return word.empty() || word.size() > limit ? Next::fault : Next::word;
  }
  bool quoted = false;
  at = 0;
  for (; at < rest_.size() && (quoted || !isExportsSpace(rest_[at])); ++at) {
    if (rest_[at] == '"') {
      quoted = !quoted;
    } else if (!appendExportsCharacter(rest_[at], limit, word)) {
      return Next::fault;
    }
  }
  // The white space that ends a word is read with it.
  rest_.remove_prefix(std::min(at + 1, rest_.size()));
  return quoted || word.empty() || word.size() > limit ? Next::fault : Next::word;
}

namespace {

constexpr std::string_view kJoint = "\\\n";

class EntryReader {
 public:
  explicit EntryReader(std::string_view text) : text_(text) {}

  std::size_t length() {
    while (!ended_) readEntry();
    return at_;
  }

 private:
  enum class Word { read, none, refused };

  bool atJoint() const { return text_.substr(at_, kJoint.size()) == kJoint; }
  bool atEnd() const { return at_ == text_.size(); }

  void skipBlanks() { at_ = std::min(text_.find_first_not_of(kBlanks, at_), text_.size()); }
  void skipBlanksAndJoints() {
    for (skipBlanks(); atJoint(); skipBlanks()) at_ += kJoint.size();
  }
  // Goes behind the next line break.
  void endLine() {
    at_ = std::min(text_.find('\n', at_), text_.size() - 1) + 1;
    ended_ = true;
  }

  char next() {
    if (!atJoint()) return text_[at_++];
    at_ += kJoint.size();
    skipBlanks();
    return ' ';
  }

  Word readWord(std::size_t limit) {
    std::string word;
    bool quoted = false;
    while (!atEnd()) {
      if (!quoted && text_[at_] == '\n') break;  // it is left for what comes next
      const char character = next();
      if (!quoted && isExportsSpace(character)) break;
      if (character == '"') {
        quoted = !quoted;
      } else if (!appendExportsCharacter(character, limit, word)) {
        return Word::refused;
      }
    }
    if (word.size() > limit) return Word::refused;
    return word.empty() ? Word::none : Word::read;
  }

  // An entry ends at a line break or at a comment, and at a word of nothing but a control character
  // that is white space, or of quotes: behind that another one begins on the same line.
  void readEntry() {
    std::size_t limit = kExportPathLimit;
    while (true) {
      skipBlanksAndJoints();
      if (atEnd() || text_[at_] == '\n' || text_[at_] == '#') return endLine();
      const std::size_t beginning = at_;
      const Word word = readWord(limit);
      const bool endsReading =
          word == Word::refused || (word == Word::none && limit == kExportPathLimit);
      if (endsReading) {
        at_ = beginning;
        return endLine();
      }
      if (word == Word::none) return;
      limit = kClientLimit;
    }
  }

  std::string_view text_;
  std::size_t at_ = 0;
  bool ended_ = false;
};

}  // namespace

std::size_t exportsEntryLength(std::string_view text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  // Nearly every line is an entry of its own.
  if (!line.ends_with('\\') && line.find('"') == std::string_view::npos) {
    return std::min(line.size() + 1, text.size());
  }
  return EntryReader(text).length();
}

bool takesNextLine(std::string_view entry) {
  if (!entry.ends_with(kJoint)) return false;
  return exportsEntryLength(std::string(entry) + "x") > entry.size();
}

std::string joinedExportsEntry(std::string_view entry) {
  std::string joined;
  while (!entry.empty()) {
    const std::size_t joint = std::min(entry.find(kJoint), entry.size());
    joined += entry.substr(0, joint);
    if (joint == entry.size()) break;
    joined += ' ';
    entry.remove_prefix(joint + kJoint.size());
    entry.remove_prefix(std::min(entry.find_first_not_of(kBlanks), entry.size()));
  }
  return joined;
}

}  // namespace paddock
