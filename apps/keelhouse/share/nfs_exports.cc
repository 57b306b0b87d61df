#include "keelhouse/share/nfs_exports.h"

#include <string_view>

#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/suggested_words.h"
#include "keelhouse/core/terminal_text.h"

namespace paddock::keelhouse {

namespace {

Array splitOptions(std::string_view text) {
  Array options;
  for (std::size_t start = 0; !text.empty() && start <= text.size();) {
    const std::size_t end = std::min(text.find(',', start), text.size());
    options.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  return options;
}

bool holdsUnwritable(std::string_view text) {
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte <= 0x20 || byte == 0x7F) return true;
    if (std::string_view("()\"#\\").find(character) != std::string_view::npos) return true;
  }
  return !isValidUtf8(text);
}

bool anyEmpty(const Array& options) {
  for (const Value& option : options) {
    if (option.string()->empty()) return true;
  }
  return false;
}

}  // namespace

Dictionary parseNfsClient(const std::string& text) {
  const auto refuse = [&text] {
    return usageFailure("\"" + text + "\" is no NFS client: write HOST or HOST(OPTION,OPTION)");
  };
  const std::size_t bracket = text.find('(');
  const std::string host = text.substr(0, bracket);
  std::string options;
  if (bracket != std::string::npos) {
    if (!text.ends_with(')')) throw refuse();
    options = text.substr(bracket + 1, text.size() - bracket - 2);
  }
  if (host.empty() || holdsUnwritable(host) || holdsUnwritable(options)) throw refuse();
  Array list = splitOptions(options);
  if (anyEmpty(list)) throw refuse();
  return {{"host", host}, {"options", std::move(list)}};
}

std::string formatNfsClient(const Dictionary& client) {
  const std::string* host = client.string("host");
  std::string text = host != nullptr ? *host : "";
  std::string options;
  if (const Array* list = client.array("options")) {
    for (const Value& option : *list) {
      if (option.string() == nullptr) continue;
      options += (options.empty() ? "" : ",") + *option.string();
    }
  }
  return options.empty() ? text : text + "(" + options + ")";
}

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
    // An older daemon has the plug-in, but not the operation.
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
