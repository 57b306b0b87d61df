#include "keelhouse/export_lines.h"

#include <algorithm>
#include <utility>

#include "keelhouse/failure.h"
#include "keelhouse/sibling_plugins.h"
#include "keelhouse/terminal_text.h"

namespace paddock::keelhouse {

namespace {

std::string withoutLineEnd(std::string line) {
  while (line.ends_with('\n')) line.pop_back();
  return line;
}

}  // namespace

std::vector<ExportLine> exportLines(const Session& session, const std::string& path) {
  std::optional<Dictionary> reply;
  try {
    reply = askIfLoaded(session, "paddock_services", "getExports", {{"path", path}});
  } catch (const Failure& failed) {
    // A daemon of before has the plug-in, and not the operation.
    if (failed.status() == ExitStatus::unreachable) throw;
  }
  std::vector<ExportLine> lines;
  const Array* exports = reply ? reply->array("exports") : nullptr;
  if (exports == nullptr) return lines;
  for (const Value& value : *exports) {
    const Dictionary* one = value.dictionary();
    if (one == nullptr) continue;
    const std::string* text = one->string("line");
    const Array* clients = one->array("clients");
    lines.push_back({text != nullptr ? withoutLineEnd(*text) : std::string(),
                     clients != nullptr ? *clients : Array{}});
  }
  return lines;
}

std::optional<Dictionary> mergedExport(const Session& session, const std::string& path,
                                       const std::vector<ExportLine>& lines, bool replaced) {
  if (lines.size() < 2) return std::nullopt;
  session.notes << "keelhouse: note: " << printable(path) << " stands on " << lines.size()
                << " lines of the exports file; this change makes them "
                << (replaced ? "what it says" : "one, with the clients of all") << ":\n";
  for (const ExportLine& line : lines) session.notes << "  " << printable(line.text) << '\n';
  session.notes.flush();
  if (replaced) return std::nullopt;
  Array clients;
  for (const ExportLine& line : lines) {
    for (const Value& client : line.clients) {
      if (std::find(clients.begin(), clients.end(), client) == clients.end())
        clients.push_back(client);
    }
  }
  return Dictionary{{"clients", std::move(clients)}};
}

}  // namespace paddock::keelhouse
