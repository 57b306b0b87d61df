#include "keelhouse/propagate/run_status.h"

#include <algorithm>
#include <utility>

namespace paddock::keelhouse {

namespace {

std::string textOf(const Dictionary& entry, const char* key) {
  const std::string* text = entry.string(key);
  return text != nullptr ? *text : std::string();
}

std::uint64_t countOf(const Dictionary& entry, const char* key) {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(entry.integer(key).value_or(0), 0));
}

std::vector<std::string> textsOf(const Array* values) {
  std::vector<std::string> texts;
  if (values == nullptr) return texts;
  for (const Value& value : *values) {
    if (value.string() != nullptr) texts.push_back(*value.string());
  }
  return texts;
}

template <typename Entry, typename Read>
std::vector<Entry> listOf(const Dictionary& status, const char* key, Read read) {
  std::vector<Entry> entries;
  const Array* values = status.array(key);
  if (values == nullptr) return entries;
  for (const Value& value : *values) {
    if (value.dictionary() != nullptr) entries.push_back(read(*value.dictionary()));
  }
  return entries;
}

FailedObject readFailed(const Dictionary& entry) {
  return {textOf(entry, "path"), textOf(entry, "error")};
}

ChangedObject readChanged(const Dictionary& entry) {
  return {textOf(entry, "path"), textsOf(entry.array("changes"))};
}

}  // namespace

RunStatus readRunStatus(const Dictionary& status) {
  RunStatus run;
  run.completed = textOf(status, "status") == "completed";
  run.stopped = status.boolean("stopped").value_or(false);
  run.dryRun = status.boolean("dryRun").value_or(false);
  run.path = textOf(status, "path");
  run.error = textOf(status, "error");
  run.process = status.integer("pid").value_or(0);
  run.done = countOf(status, "itemsDone");
  run.total = countOf(status, "itemsTotal");
  run.changed = countOf(status, "itemsChanged");
  run.failed = countOf(status, "errorCount");
  run.seconds = countOf(status, "elapsedSeconds");
  run.errors = listOf<FailedObject>(status, "errors", readFailed);
  run.examples = listOf<ChangedObject>(status, "examples", readChanged);
  return run;
}

}  // namespace paddock::keelhouse
