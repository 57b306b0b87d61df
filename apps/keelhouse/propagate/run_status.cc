#include "keelhouse/propagate/run_status.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "base/file_access.h"
#include "base/system_call.h"
#include "keelhouse/core/reply_status.h"
#include "wire/property_list.h"

namespace paddock::keelhouse {

namespace {

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
  run.leftOut = countOf(status, "itemsLeftOut");
  run.failed = countOf(status, "errorCount");
  run.seconds = countOf(status, "elapsedSeconds");
  run.errors = listOf<FailedObject>(status, "errors", readFailed);
  run.examples = listOf<ChangedObject>(status, "examples", readChanged);
  return run;
}

namespace {

constexpr std::size_t kLargest = 1U << 20U;
constexpr std::size_t kBlock = 64U << 10U;
constexpr std::string_view kNameBegin = "CopyPrivsTemp.";

bool isTrusted(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_nlink == 1 &&
         (status.st_uid == 0 || status.st_uid == ::geteuid());
}

// Symlinks are not followed, and FIFOs do not block.
FileDescriptor openTrusted(const std::string& path) {
  FileDescriptor file(retryOnInterrupt([&path] {
    return ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  }));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !isTrusted(status)) return {};
  return file;
}

std::optional<std::string> contentsOf(const FileDescriptor& file) {
  std::string text;
  std::string block(kBlock, '\0');
  for (;;) {
    const auto count =
        retryOnInterrupt([&] { return ::read(file.get(), block.data(), block.size()); });
    if (count < 0) return std::nullopt;
    if (count == 0) return text;
    text.append(block, 0, static_cast<std::size_t>(count));
    if (text.size() > kLargest) return std::nullopt;
  }
}

bool isCompletedOf(const Dictionary& status, const std::string& path) {
  const RunStatus run = readRunStatus(status);
  return run.completed && run.path == path;
}

}  // namespace

std::optional<Dictionary> readStatusFile(const std::string& path) {
  const FileDescriptor file = openTrusted(path);
  const auto text = file ? contentsOf(file) : std::nullopt;
  if (!text) return std::nullopt;
  std::string error;
  auto value = wire::parsePropertyList(*text, error);
  if (!value || value->dictionary() == nullptr) return std::nullopt;
  return std::move(*value->dictionary());
}

std::optional<EndedRun> endedRun(const std::string& root, const std::string& path) {
  namespace fs = std::filesystem;
  std::optional<EndedRun> found;
  fs::file_time_type newest;
  std::error_code error;
  for (fs::directory_iterator entry(root + "/tmp", error), end; !error && entry != end;
       entry.increment(error)) {
    if (!entry->path().filename().string().starts_with(kNameBegin)) continue;
    auto status = readStatusFile(entry->path());
    if (!status || !isCompletedOf(*status, path)) continue;
    std::error_code gone;
    const auto time = entry->last_write_time(gone);
    if (gone || (found && time <= newest)) continue;
    newest = time;
    found = EndedRun{entry->path(), std::move(*status)};
  }
  return found;
}

}  // namespace paddock::keelhouse
