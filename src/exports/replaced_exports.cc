#include "exports/replaced_exports.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "base/status.h"
#include "base/text.h"
#include "platform/logger.h"
#include "platform/machine_information.h"
#include "platform/services.h"
#include "platform/text_file.h"

namespace paddock {

namespace {

constexpr const char* kSuffix = ".replaced-";
constexpr std::size_t kTimeLength = 16;  // "20261122T061500Z"
constexpr std::size_t kKept = 10;
constexpr int kSecondsTried = 60;
constexpr std::size_t kTemporaryLetters = 12;
constexpr std::size_t kLinesLogged = 1000;
constexpr std::size_t kLinesNamed = 20;

using Lines = std::unordered_set<std::string_view>;

// Calls `visit` with each line that is not blank, without indentation and line end.
template <typename Visitor>
void forEachLine(std::string_view text, Visitor visit) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    if (!line.empty()) visit(line);
  }
}

Lines linesOf(std::string_view text) {
  Lines lines;
  forEachLine(text, [&lines](std::string_view line) { lines.insert(line); });
  return lines;
}

void warn(const std::string& text) {
  services().logger->log(kLogWarning, "paddock_sharing: " + text);
}

std::string nameAt(std::time_t time) {
  std::tm parts{};
  ::gmtime_r(&time, &parts);
  std::array<char, kTimeLength + 1> text{};
  std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &parts);
  return text.data();
}

// Logs each line that `from` has and none of the others, with `beginning` before it.
void logLines(std::string_view from, const Lines& first, const Lines& second,
              const std::string& beginning) {
  std::size_t count = 0;
  forEachLine(from, [&](std::string_view line) {
    if (first.contains(line) || second.contains(line)) return;
    if (++count <= kLinesLogged) warn(beginning + printable(line));
  });
  if (count > kLinesLogged) {
    warn(beginning + std::to_string(count - kLinesLogged) + " lines more");
  }
}

void logDifferences(const std::string& gaveWay, const std::string& path, const std::string& known,
                    const std::string& written) {
  const Lines knownLines = linesOf(known);
  logLines(gaveWay, knownLines, linesOf(written), path + " lost the line: ");
  // Lines removed by another process and restored by this write.
  const Lines others = linesOf(gaveWay);
  Lines added = linesOf(written);
  for (const std::string_view line : knownLines) added.erase(line);
  logLines(written, others, added, path + " has the line again: ");
}

// Whether exports(5) says something with it.
bool isEntry(std::string_view line) { return !line.empty() && line.front() != '#'; }

// Whether the name is one generated here, and not that of an unrelated file.
bool isOurs(const std::string& name, std::size_t prefix) {
  if (name.size() != prefix + kTimeLength) return false;
  const std::string_view time = std::string_view(name).substr(prefix);
  for (std::size_t at = 0; at < kTimeLength; ++at) {
    const bool fits = at == 8    ? time[at] == 'T'
                      : at == 15 ? time[at] == 'Z'
                                 : time[at] >= '0' && time[at] <= '9';
    if (!fits) return false;
  }
  return true;
}

void removeOldest(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = path.substr(0, slash == 0 ? 1 : slash);
  const std::string prefix = path.substr(slash + 1) + kSuffix;
  std::vector<std::string> names;
  services().textFiles->namesBeginningWith(folder, prefix, names);
  std::erase_if(names, [&](const std::string& name) { return !isOurs(name, prefix.size()); });
  for (std::size_t oldest = 0; names.size() - oldest > kKept; ++oldest) {
    services().textFiles->removeFile(folder, names[oldest]);
  }
}

int keep(ReplacedFile& gaveWay, const std::string& path, std::string& name) {
  const std::time_t now = std::chrono::system_clock::to_time_t(services().clock->now());
  int error = EEXIST;
  for (int second = 0; second < kSecondsTried && error == EEXIST; ++second) {
    name = path + kSuffix + nameAt(now + second);
    error = gaveWay.keepAs(name);
  }
  return error;
}

}  // namespace

void keepIfOthersChangedIt(ReplacedFile& gaveWay, const std::string& path, const std::string& known,
                           const std::string& written) {
  const auto& contents = gaveWay.contents();
  if (contents == known && !gaveWay.isOpenForWriting()) return;
  std::string name;
  const int error = keep(gaveWay, path, name);
  const std::string where =
      error == 0 ? "is kept as " + name
                 : "could not be kept as " + name + " (" + sharing_error_string(error) +
                       "), and stays in its folder under a name that begins with a dot";
  if (contents == known) {
    warn(path + " was open for writing elsewhere while it was replaced; that file " + where);
  } else {
    warn(path + " was changed by others while it was replaced; that file " + where);
    if (contents) logDifferences(*contents, path, known, written);
  }
  if (error == 0) removeOldest(path);
}

void logLeftFiles(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return;
  const std::string folder = path.substr(0, slash == 0 ? 1 : slash);
  const std::string prefix = "." + path.substr(slash + 1) + ".";
  std::vector<std::string> names;
  services().textFiles->namesBeginningWith(folder, prefix, names);
  for (const std::string& name : names) {
    if (name.size() != prefix.size() + kTemporaryLetters) continue;
    warn("a write of " + path + " was broken off and left " + path.substr(0, slash + 1) +
         printable(name) + ": see whether it has lines by hand that the file lacks, and remove it");
  }
}

void logMadeAnew(const std::string& path, const std::string& known, const std::string& written) {
  const Lines knownLines = linesOf(known);
  std::string named;
  std::size_t count = 0;
  forEachLine(written, [&](std::string_view line) {
    if (!isEntry(line) || !knownLines.contains(line)) return;
    if (++count <= kLinesNamed) named += (count == 1 ? ": " : "; ") + printable(line);
  });
  if (count > kLinesNamed) named += "; and " + std::to_string(count - kLinesNamed) + " more";
  const std::string lines = count == 1 ? "line" : "lines";
  services().logger->log(kLogError,
                         "paddock_sharing: " + path +
                             " was gone, removed by somebody else; it is made anew with " +
                             std::to_string(count) + " " + lines + " that it had" + named);
}

}  // namespace paddock
