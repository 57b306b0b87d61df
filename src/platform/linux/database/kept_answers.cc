#include "platform/linux/database/kept_answers.h"

namespace paddock {

namespace {

// https://www.sqlite.org/fileformat.html: the versions for writing and reading are 1 with a
// rollback journal and 2 with a write-ahead log.
constexpr unsigned char kRollbackJournal = 1;

void append(std::string& key, const std::string& text) {
  key += std::to_string(text.size());
  key += ':';
  key += text;
}

std::size_t sizeOf(const Array& answer) {
  std::size_t size = 0;
  for (const Value& record : answer) {
    for (const auto& [attribute, values] : *record.dictionary()) {
      size += attribute.size();
      for (const Value& value : *values.array()) size += value.string()->size();
    }
  }
  return size;
}

}  // namespace

bool DatabaseState::isTelling() const {
  return mark[0] == kRollbackJournal && mark[1] == kRollbackJournal;
}

std::string KeptAnswers::keyOf(const std::vector<std::string>& types, const std::string& attribute,
                               const std::string& value) {
  std::string key;
  append(key, attribute);
  append(key, value);
  for (const std::string& type : types) append(key, type);
  return key;
}

std::optional<Array> KeptAnswers::find(const DatabaseState& state, const std::string& key) const {
  if (answers_.empty() || !(state == state_)) return std::nullopt;
  const auto found = answers_.find(key);
  return found != answers_.end() ? std::optional(found->second) : std::nullopt;
}

void KeptAnswers::keep(const DatabaseState& before, const DatabaseState& after,
                       const std::string& key, const Array& answer) {
  // A commit that was on its way before has ended when the search could read, and shows after it.
  if (!(before == after) || !after.isTelling() || sizeOf(answer) > kLargest) return;
  if (!(state_ == after) || answers_.size() >= kCapacity) answers_.clear();
  state_ = after;
  answers_.emplace(key, answer);
}

}  // namespace paddock
