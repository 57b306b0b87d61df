// Text and tables for people, together.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "base/text.h"
#include "base/value.h"

namespace paddock::keelhouse {

// Line feeds in names and paths, as distinct from those that end keelhouse's own lines.

// Knows the line feeds of all texts that did not come from keelhouse itself by the bytes beside
// them, so that also those of a part of such a text are found.
class ForeignLineBreaks {
 public:
  void add(std::string_view text);
  // All texts and keys in it, without the end of a text that is a line.
  void add(const Value& value);
  void add(const Dictionary& dictionary);

  // The text with `\x0A` for each line feed that may be one of them. A line of keelhouse's own may
  // be joined to the next one where a foreign text has the same bytes; never is one taken apart.
  std::string escape(std::string_view text) const;

 private:
  bool isBare_ = false;   // one has nothing beside it
  std::set<int> before_;  // bytes
  std::set<int> after_;   // the same, -1 for the end of the text
};

}  // namespace paddock::keelhouse
