#include "keelhouse/access/list_state.h"

#include "keelhouse/access/privileges_view.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/suggested_words.h"
#include "keelhouse/core/terminal_text.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPlugin = "paddock_files";

std::string errorOf(const Dictionary& reply) {
  const std::string* error = reply.string("error");
  return error != nullptr ? printable(*error) : messageOf(reply);
}

Failure opens(const std::string& path, const Dictionary& privileges, const char* fate) {
  const std::string word = shellWord(path);
  return failure("the list of " + printable(path) + " is complete, and " + fate +
                 "; nothing was changed\nThen the mode would decide over SMB, too: " +
                 accessByMode(privileges) + ".\nTo open it so: --force (acl remove, acl set), or " +
                 "keelhouse acl clear " + word + ". To let nobody in: keelhouse acl set " + word +
                 R"( --from FILE, with {"acl": [], "complete": true} in FILE.)");
}

}  // namespace

std::optional<ListState> readListState(const Session& session, const std::string& path) {
  const auto reply = askIfLoaded(session, kPlugin, "getList", {{"path", path}});
  if (!reply) return std::nullopt;
  if (reply->integer("status") != 0) {
    throw failure("whether the list of " + printable(path) +
                  " is complete cannot be told: " + errorOf(*reply));
  }
  return ListState{reply->boolean("present").value_or(false),
                   reply->boolean("complete").value_or(false)};
}

std::optional<ListState> readListStateIfPossible(const Session& session, const std::string& path) {
  try {
    return readListState(session, path);
  } catch (const Failure& failed) {
    if (failed.status() == ExitStatus::unreachable) throw;
    return std::nullopt;
  }
}

std::string describeCompleteness(const ListState& state, const std::string& path, bool hasEntries) {
  if (!state.complete) return {};
  const std::string kernel =
      "The kernel, which decides locally and over NFS, keeps the mode for owner, group and "
      "others.\n";
  if (hasEntries) {
    return "The list is complete: nothing falls to the mode, and what no entry allows is "
           "refused.\n" +
           kernel;
  }
  return printable(path) +
         " has a complete list without entries: nobody gets in by it, and nothing falls to the "
         "mode.\n" +
         kernel;
}

void requireListMayGo(const Session& session, const std::string& path, const Dictionary& privileges,
                      bool force) {
  if (force) return;
  const auto state = readListState(session, path);
  if (state && state->complete) throw opens(path, privileges, "would go with its last entry");
}

bool requireListMayOpen(const Session& session, const std::string& path,
                        const Dictionary& privileges, bool force) {
  const auto state = readListState(session, path);
  if (!state || !state->complete) return false;
  if (!force) throw opens(path, privileges, "would be so no longer");
  return true;
}

void makeListComplete(const Session& session, const std::string& path, bool emptied) {
  const std::string action = "the list of " + printable(path) + " cannot be made complete";
  const auto state = readListState(session, path);
  if (state && state->complete && !emptied) return;
  const auto reply =
      state ? askIfLoaded(session, kPlugin, "makeComplete", {{"path", path}, {"empty", emptied}})
            : std::nullopt;
  if (!reply) throw failure(action + ": the plug-in paddock_files is not loaded");
  if (reply->integer("status") != 0) throw failure(action + ": " + errorOf(*reply));
}

void completeWrittenList(const Session& session, const std::string& path) {
  try {
    makeListComplete(session, path, false);
  } catch (const Failure& failed) {
    if (failed.status() == ExitStatus::unreachable) throw;
    throw failure("the entries of " + printable(path) + " are set, but " + failed.what());
  }
}

}  // namespace paddock::keelhouse
