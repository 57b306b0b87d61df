#include "keelhouse/command_words.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

struct Assignment {
  std::string_view key;
  std::string_view value;
};

// What one level of the key paths holds: a value, or the next level.
struct Level {
  std::optional<Value> value;
  std::map<std::string, Level, std::less<>> inside;
};

std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

void requireUtf8(std::string_view text) {
  if (!isValidUtf8(text)) throw usageFailure(quoted(text) + " is not UTF-8");
}

std::vector<Assignment> splitAssignments(const std::vector<std::string>& words) {
  std::vector<Assignment> assignments;
  for (std::size_t at = 0; at < words.size();) {
    const std::string_view word = words[at];
    const std::size_t equals = word.find('=');
    if (at + 1 < words.size() && words[at + 1] == "=") {
      if (at + 2 == words.size()) throw usageFailure("a value is missing after " + quoted(word));
      assignments.push_back({word, words[at + 2]});
      at += 3;
    } else if (equals != std::string_view::npos && equals > 0) {
      assignments.push_back({word.substr(0, equals), word.substr(equals + 1)});
      ++at;
    } else {
      throw usageFailure("expected KEY = VALUE at " + quoted(word));
    }
  }
  return assignments;
}

std::vector<std::string_view> splitKey(std::string_view key) {
  requireUtf8(key);
  std::vector<std::string_view> parts;
  for (std::size_t start = 0; start <= key.size();) {
    const std::size_t end = std::min(key.find(':', start), key.size());
    if (end == start) throw usageFailure("the key " + quoted(key) + " has an empty part");
    parts.push_back(key.substr(start, end - start));
    start = end + 1;
  }
  if (parts.size() < 2) throw usageFailure("the key " + quoted(key) + " is not SHORTNAME:KEY");
  if (parts.size() > wire::kMaximumNesting) {
    throw usageFailure("the key " + quoted(key) + " has too many parts");
  }
  return parts;
}

void insert(Level& root, const std::vector<std::string_view>& parts, const Assignment& assignment) {
  const std::string key = quoted(assignment.key);
  Level* level = &root;
  for (auto part = parts.begin() + 1; part != parts.end(); ++part) {
    if (level->value) throw usageFailure(key + " lies inside a key that has a value");
    level = &level->inside[std::string(*part)];
  }
  if (level->value) throw usageFailure(key + " is given twice");
  if (!level->inside.empty()) throw usageFailure(key + " already holds other keys");
  level->value = parseCommandValue(assignment.value);
}

Value treeOf(const Level& level);

// The elements when the keys are exactly 0 to n-1.
std::optional<Array> arrayOf(const Level& level) {
  Array elements;
  for (std::size_t index = 0; index < level.inside.size(); ++index) {
    const auto found = level.inside.find(std::to_string(index));
    if (found == level.inside.end()) return std::nullopt;
    elements.push_back(treeOf(found->second));
  }
  return elements;
}

Dictionary dictionaryOf(const Level& level) {
  Dictionary dictionary;
  for (const auto& [key, inside] : level.inside) dictionary.set(key, treeOf(inside));
  return dictionary;
}

Value treeOf(const Level& level) {
  if (level.value) return *level.value;
  if (auto elements = arrayOf(level)) return std::move(*elements);
  return dictionaryOf(level);
}

std::string takeOperation(Level& root, const std::string& shortName) {
  const std::string key = quoted(shortName + ":command");
  const auto found = root.inside.find("command");
  if (found == root.inside.end()) throw usageFailure(key + " must name the operation");
  const std::string* name = found->second.value ? found->second.value->string() : nullptr;
  if (name == nullptr || name->empty()) throw usageFailure(key + " is no operation's name");
  std::string operation = *name;
  root.inside.erase(found);
  return operation;
}

bool looksLikeScalar(std::string_view text) {
  if (text.empty()) return false;
  const auto outer = {text.front(), text.back()};
  return std::none_of(outer.begin(), outer.end(), [](char character) {
    return std::string_view(" \t\r\n{[").find(character) != std::string_view::npos;
  });
}

}  // namespace

Value parseCommandValue(std::string_view text) {
  requireUtf8(text);
  if (text == "null") return nullptr;
  std::string error;
  if (looksLikeScalar(text)) {
    if (auto value = wire::parseJson(text, error)) return std::move(*value);
  }
  return text;
}

PluginCommand parseCommandWords(const std::vector<std::string>& words) {
  Level root;
  std::string_view shortName;
  for (const Assignment& assignment : splitAssignments(words)) {
    const auto parts = splitKey(assignment.key);
    if (shortName.empty()) shortName = parts.front();
    if (parts.front() != shortName) {
      throw usageFailure("one call asks one plug-in: " + quoted(shortName) + " and " +
                         quoted(parts.front()) + " are two");
    }
    insert(root, parts, assignment);
  }
  if (shortName.empty()) throw usageFailure("expected KEY = VALUE");
  PluginCommand command;
  command.shortName = shortName;
  command.operation = takeOperation(root, command.shortName);
  command.arguments = dictionaryOf(root);
  return command;
}

}  // namespace paddock::keelhouse
