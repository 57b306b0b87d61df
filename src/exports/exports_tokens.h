// The words of an exports line, cut as nfs-utils cuts them. Internal to exports_line.cc and
// exports_entry.cc.
#pragma once

#include <string>
#include <string_view>

namespace paddock {

inline constexpr std::size_t kExportPathLimit = 1024;  // bytes
inline constexpr std::size_t kClientLimit = 511;       // bytes of a client with its options

// Whether the character ends a word that is not quoted.
bool isExportsSpace(char character);

// Appends a character the way nfs-utils fills its buffer; false when the buffer is full.
bool appendExportsCharacter(char character, std::size_t limit, std::string& word);

class ExportsTokens {
 public:
  enum class Next { word, end, fault };

  explicit ExportsTokens(std::string_view line) : rest_(line) {}

  // Reads the next word into `word`. `end` at the line's end and at a comment; `fault` for a
  // word that is too long, an open quote, and for what makes nfs-utils read on as if a new line
  // had begun (an empty quoted word, a control character that is white space).
  Next next(std::size_t limit, std::string& word);

 private:
  std::string_view rest_;
};

}  // namespace paddock
