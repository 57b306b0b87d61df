#include "keelhouse/core/keelhouse_request_log.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "base/text.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr std::size_t kShownLines = 20;
constexpr std::size_t kKeptNotes = std::size_t{1} << 16U;
constexpr std::size_t kAskedRequests = 100;
constexpr std::string_view kError = "error";
constexpr std::string_view kWarning = "warning";
constexpr std::string_view kProgram = "program ";
constexpr std::string_view kCommand = "command to plug-in ";
constexpr std::string_view kNoFile = ": No such file or directory";
constexpr std::string_view kNoPlugin = "there is no plug-in ";
constexpr std::string_view kNotTold = "A service was not told of ";
constexpr std::string_view kNfs = ": paddock_nfs: ";
constexpr std::string_view kExportfsMissing = "/usr/sbin/exportfs: No such file or directory";
constexpr std::string_view kNoNfsServer = "no NFS server is installed";
constexpr std::string_view kSynchroniser = "/usr/libexec/samba/synchronize-shares";

bool has(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

// Without the plug-in that says it.
std::string_view saying(const std::string& text) {
  constexpr std::string_view kPlugin = "paddock_";
  constexpr std::string_view kEnd = ": ";
  const std::size_t end = text.find(kEnd);
  const bool isNamed =
      text.starts_with(kPlugin) && end != std::string::npos && text.find(' ') == end + 1;
  return std::string_view(text).substr(isNamed ? end + kEnd.size() : 0);
}

bool isNotTold(const LogLine& line) { return saying(line.text).starts_with(kNotTold); }

// What was run or asked, whatever for.
bool isAttempt(const LogLine& line) {
  return line.text.starts_with(kProgram) || line.text.starts_with(kCommand);
}

bool isOfFailure(const LogLine& line) {
  return line.level == kError && (isNotTold(line) || isAttempt(line));
}

bool isExportfsMissing(const LogLine& line) {
  return isNotTold(line) && line.text.ends_with(std::string(kNfs) + std::string(kExportfsMissing));
}

// A program or a plug-in that is not there.
bool isNobodyThere(const LogLine& line) {
  return isNotTold(line) && (line.text.ends_with(kNoFile) || has(line.text, kNoPlugin));
}

// Whether the exports file has more than comments. One that cannot be read may have.
bool exportsAnything() {
  std::ifstream file("/etc/exports");
  if (!file) return errno != ENOENT;
  for (std::string line; std::getline(file, line);) {
    const std::size_t first = line.find_first_not_of(" \t\r");
    if (first != std::string::npos && line[first] != '#') return true;
  }
  return false;
}

bool isExportfsNeeded(const std::string& said) {
  return !has(said, kNoNfsServer) && exportsAnything();
}

// What the daemon logged; what cannot be read is omitted, since the outcome is reported anyway.
std::vector<LogLine> logOf(const Session& session, const std::string& request) {
  if (request.empty()) return {};
  try {
    return session.daemon.requestLog(request);
  } catch (const Failure&) {
    return {};
  }
}

// The request that a failure is about: the one that the daemon answered with it, or the last
// change, which is not as it should be.
std::string requestOf(const Session& session, const Failure& failed) {
  if (failed.origin() == ReportedBy::daemon) return session.daemon.lastRequestId();
  const auto& changes = session.daemon.changeIds();
  return changes.empty() ? std::string() : changes.back();
}

std::string indented(const std::vector<LogLine>& lines, const std::string& request) {
  std::string text;
  for (std::size_t at = 0; at < lines.size(); ++at) {
    if (at == kShownLines) {
      return text + "  more: journalctl -u paddockd --grep " + printable(request) + "\n";
    }
    text.append("  ").append(lines[at].level).append(": ");
    text.append(printable(lines[at].text)).append("\n");
  }
  return text;
}

Array jsonOf(const std::vector<LogLine>& log) {
  Array lines;
  for (const LogLine& line : log) {
    lines.emplace_back(Dictionary{{"time", line.time}, {"level", line.level}, {"text", line.text}});
  }
  return lines;
}

bool hasError(const std::vector<LogLine>& lines) {
  return std::any_of(lines.begin(), lines.end(),
                     [](const LogLine& line) { return line.level == kError; });
}

// The command that completes it once the fault in a line is corrected.
std::string finishing(const LogLine& line) {
  if (has(line.text, "The exports file does not follow"))
    return "The next change writes the exports file, when it can be.";
  if (!isNotTold(line)) return {};
  if (has(line.text, kNfs)) return "When that is mended: keelhouse command nfs:command = updateNFS";
  if (has(line.text, kSynchroniser)) return "When that is mended: " + std::string(kSynchroniser);
  return "When that is mended: keelhouse command vsp:command = syncSharePoints";
}

void append(std::string& text, const std::string& line) {
  if (line.empty() || has(text, line)) return;
  text += (text.empty() ? "" : "\n") + line;
}

}  // namespace

NotesBuffer::int_type NotesBuffer::overflow(int_type character) {
  if (traits_type::eq_int_type(character, traits_type::eof()))
    return traits_type::not_eof(character);
  const char byte = traits_type::to_char_type(character);
  return xsputn(&byte, 1) == 1 ? character : traits_type::eof();
}

std::streamsize NotesBuffer::xsputn(const char* bytes, std::streamsize count) {
  const std::size_t room = kKeptNotes - text_.size();
  text_.append(bytes, std::min(room, static_cast<std::size_t>(count)));
  out_.write(bytes, count);
  return out_ ? count : 0;
}

int NotesBuffer::sync() {
  out_.flush();
  return out_ ? 0 : -1;
}

std::vector<LogLine> newTroubles(const std::vector<LogLine>& log, const std::string& said,
                                 const std::string& root, bool warnings) {
  const bool hasPurpose = std::any_of(log.begin(), log.end(), isNotTold);
  const bool hasFailure = std::any_of(log.begin(), log.end(), isOfFailure);
  std::optional<bool> needed;
  std::set<std::string> shown;
  std::vector<LogLine> lines;
  for (const LogLine& line : log) {
    if (line.level != kError && (!warnings || line.level != kWarning)) continue;
    if (isAttempt(line) && (line.level == kError ? hasPurpose : !hasFailure)) continue;
    if (!root.empty() && isNobodyThere(line)) continue;
    if (isExportfsMissing(line)) {
      if (!needed) needed = isExportfsNeeded(said);
      if (!*needed) continue;
    }
    if (has(said, printable(saying(line.text))) || !shown.insert(line.text).second) continue;
    lines.push_back(line);
  }
  return lines;
}

std::string adviceOn(const std::vector<LogLine>& lines) {
  std::string advice;
  for (const LogLine& line : lines) {
    if (line.level != kError) continue;
    if (has(line.text, "No space left on device") || has(line.text, "Disk quota exceeded") ||
        has(line.text, "disk is full"))
      append(advice, "Make room on the volume, then repeat the command.");
    if (has(line.text, "Read-only file system"))
      append(advice, "Mount the volume for writing, then repeat the command.");
  }
  return advice;
}

void printFailure(const Session& session, std::ostream& error, const Failure& failed,
                  const std::string& said) {
  const std::string text = failed.what();
  const std::size_t end = text.find('\n');
  const std::string request = requestOf(session, failed);
  const std::vector<LogLine> log = logOf(session, request);
  // Where keelhouse itself detected the failure, warnings are unrelated.
  const bool warnings = failed.origin() == ReportedBy::daemon;
  const std::vector<LogLine> lines =
      newTroubles(log, said + printableLines(text), session.root, warnings);
  std::string more = end != std::string::npos ? text.substr(end + 1) : std::string();
  // A guess may contradict the reason, and what finishes it is not the same command again.
  const bool saysHow = has(more, "When that is mended: ") || has(more, "To finish it");
  if (!saysHow) append(more, hasError(lines) ? adviceOn(lines) : failed.guess());
  error << "keelhouse: " << printableLines(text.substr(0, end)) << '\n' << indented(lines, request);
  if (!more.empty()) error << printableLines(more) << '\n';
  if (!session.json) return;
  session.out << wire::writeJsonPretty(
                     Dictionary{{"error", text.substr(0, end) + (more.empty() ? "" : "\n" + more)},
                                {"exitStatus", static_cast<int>(failed.status())},
                                {"log", jsonOf(log)}})
              << '\n';
}

Array warnOfErrors(const Session& session, const std::string& said) {
  const auto& requests = session.daemon.changeIds();
  const auto first =
      requests.size() > kAskedRequests ? requests.end() - kAskedRequests : requests.begin();
  std::vector<LogLine> log;
  for (auto request = first; request != requests.end(); ++request) {
    const std::vector<LogLine> more = logOf(session, *request);
    log.insert(log.end(), more.begin(), more.end());
  }
  const std::vector<LogLine> lines = newTroubles(log, said, session.root, false);
  if (lines.empty()) return {};
  session.notes << "keelhouse: warning: this is done, and not all that goes with it:\n"
                << indented(lines, requests.back());
  std::string advice;
  for (const LogLine& line : lines) append(advice, finishing(line));
  if (!advice.empty()) session.notes << advice << '\n';
  return jsonOf(lines);
}

std::string withLog(const std::string& document, Array log) {
  if (log.empty()) return document;
  std::string error;
  auto value = document.empty() ? Value(Dictionary{}) : wire::parseJson(document, error);
  Dictionary* dictionary = value ? value->dictionary() : nullptr;
  if (dictionary == nullptr) return document;
  dictionary->set("log", std::move(log));
  return wire::writeJsonPretty(*dictionary) + "\n";
}

}  // namespace paddock::keelhouse
