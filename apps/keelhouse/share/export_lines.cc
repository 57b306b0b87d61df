#include "keelhouse/share/export_lines.h"

#include "keelhouse/core/failure.h"
#include "keelhouse/core/shell_word.h"
#include "keelhouse/core/sibling_plugins.h"
#include "keelhouse/core/terminal_text.h"

namespace paddock::keelhouse {

namespace {

std::string withoutLineEnd(std::string line) {
  while (line.ends_with('\n')) line.pop_back();
  return line;
}

// The reply; absent where the daemon cannot say.
std::optional<Dictionary> askExports(const Session& session, const std::string& path) {
  try {
    return askIfLoaded(session, "paddock_services", "getExports", {{"path", path}});
  } catch (const Failure& failed) {
    // A daemon of before has the plug-in, and not the operation.
    if (failed.status() == ExitStatus::unreachable) throw;
    return std::nullopt;
  }
}

}  // namespace

void noteUnreadExports(const Session& session) {
  const auto reply = askExports(session, "/");
  if (!reply) return;
  try {
    requireDone(*reply, "the exports over NFS are listed as they were last read");
  } catch (const Failure& failed) {
    session.notes << "keelhouse: note: " << printableLines(failed.what()) << '\n';
  }
}

std::optional<std::vector<ExportLine>> exportLines(const Session& session,
                                                   const std::string& path) {
  const std::optional<Dictionary> reply = askExports(session, path);
  if (!reply) return std::nullopt;
  requireDone(*reply, "whether " + printable(path) + " is in the exports file is not known");
  std::vector<ExportLine> lines;
  const Array* exports = reply->array("exports");
  for (const Value& value : exports != nullptr ? *exports : Array{}) {
    const Dictionary* one = value.dictionary();
    if (one == nullptr) continue;
    const std::string* text = one->string("line");
    const Array* clients = one->array("clients");
    lines.push_back({text != nullptr ? withoutLineEnd(*text) : std::string(),
                     clients != nullptr ? *clients : Array{}});
  }
  return lines;
}

void requireOneExportLine(const Session& session, const std::string& path,
                          const std::string& action, bool replaced) {
  const auto lines = exportLines(session, path);
  if (!lines || lines->size() < 2) return;
  std::string text = printable(path) + " stands on " + std::to_string(lines->size()) +
                     " lines of the exports file, of which a change of the share makes one:";
  for (const ExportLine& line : *lines) text += "\n  " + printable(line.text);
  if (replaced) {
    session.notes << "keelhouse: note: " << text << '\n';
    session.notes.flush();
    return;
  }
  throw failure(
      action + ": " + text +
      "\nNothing was changed. Say first what it is to be exported to: keelhouse share set " +
      printable(shellWord(path)) + " --nfs CLIENT...");
}

}  // namespace paddock::keelhouse
