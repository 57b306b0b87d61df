#include "keelhouse/reply_leaves.h"

#include "keelhouse/core/terminal_text.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr std::string_view kStatus = "status";

bool isLeaf(const Value& value) {
  return value.array() == nullptr && value.dictionary() == nullptr;
}

class LeafWriter {
 public:
  LeafWriter(std::string& out, std::string_view shortName) : out_(out), path_(shortName) {}

  void writeReply(const Dictionary& reply) {
    const Value* status = reply.find(kStatus);
    const bool first = status != nullptr && isLeaf(*status);
    if (first) below(kStatus, *status);
    for (const auto& entry : reply) {
      if (!first || entry.key != kStatus) below(printable(entry.key), entry.value);
    }
  }

 private:
  void below(std::string_view part, const Value& value) {
    const std::size_t length = path_.size();
    path_ += ':';
    path_ += part;
    write(value);
    path_.resize(length);
  }

  void write(const Value& value) {
    if (const Dictionary* dictionary = value.dictionary()) {
      for (const auto& entry : *dictionary) below(printable(entry.key), entry.value);
    } else if (const Array* array = value.array()) {
      for (std::size_t at = 0; at < array->size(); ++at) below(std::to_string(at), (*array)[at]);
    } else {
      out_ += path_ + " = " + wire::writeJson(value) + "\n";
    }
  }

  std::string& out_;
  std::string path_;
};

}  // namespace

std::string formatLeaves(std::string_view shortName, const Dictionary& reply) {
  std::string lines;
  LeafWriter(lines, shortName).writeReply(reply);
  return lines;
}

}  // namespace paddock::keelhouse
