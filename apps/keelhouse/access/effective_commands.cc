#include "keelhouse/access/effective_commands.h"

#include <unistd.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "base/text.h"
#include "keelhouse/access/access_programs.h"
#include "keelhouse/access/acl_words.h"
#include "keelhouse/access/folder_privileges.h"
#include "keelhouse/access/principals.h"
#include "keelhouse/core/host_accounts.h"
#include "keelhouse/core/local_accounts.h"
#include "keelhouse/core/named_share.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/terminal_text.h"
#include "keelhouse/core/tree_program.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kProgram =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs";

std::uint32_t uidOf(const Session& session, const std::string& user) {
  if (user.empty()) throw usageFailure("the user's name is empty");
  if (const auto uid = hostId(PrincipalType::user, user)) return *uid;
  const auto number = parseInteger(user);
  const bool isPlain = user.front() >= '0' && user.front() <= '9';
  if (number && isPlain && *number <= std::numeric_limits<std::uint32_t>::max())
    return static_cast<std::uint32_t>(*number);
  const auto account = findAccount(session, PrincipalType::user, user);
  if (!account) throw nobodyNamed(session, {PrincipalName::Kind::user, user});
  if (!account->id) throw failure("the record of " + user + " has no uid");
  return *account->id;
}

std::uint32_t askBitmap(const Session& session, const std::string& path, std::uint32_t uid) {
  const Dictionary reply =
      session.daemon.call("paddock_sharing", "getEffectivePerms", {{"path", path}, {"uid", uid}});
  const auto bitmap = reply.integer("bitmap");
  if (!bitmap) throw failure("the daemon's reply has no bitmap");
  return static_cast<std::uint32_t>(*bitmap) & kAllRights;
}

// What the program itself says when the module says nothing: that may mean that it could not find
// out. Absent when the program could not either, and has said why.
std::optional<std::uint32_t> askProgram(const Session& session, const std::string& path,
                                        std::uint32_t uid) {
  std::ostringstream output;
  const Session quiet{session.daemon, output, session.notes, false, session.root};
  const ExitStatus status = judgeAccess(quiet, "effective", {{"path", path}, {"uid", uid}},
                                        {"-p", path, "-u", std::to_string(uid)});
  if (status != ExitStatus::done) return std::nullopt;
  return static_cast<std::uint32_t>(leadingInteger(output.str())) & kAllRights;
}

// The answer for the path as a whole; in JSON everything that there is to say. Absent where nobody
// can say it: neither the daemon nor this installation has the program.
std::optional<ExitStatus> printAnswer(const Session& session, const std::string& path,
                                      std::uint32_t uid) {
  const std::string operation = session.json ? "explain" : "answer";
  try {
    return judgeAccess(session, operation, {{"path", path}, {"uid", uid}},
                       {"--" + operation, "-p", path, "-u", std::to_string(uid)});
  } catch (const Failure& failed) {
    constexpr long kNotFound = 404;
    const auto* refusal = dynamic_cast<const Refusal*>(&failed);
    const bool isUnknown = refusal != nullptr && refusal->httpStatus() == kNotFound;
    if (!isUnknown && (::geteuid() != 0 || canRunTreeProgram(session, kProgram))) throw;
  }
  return std::nullopt;
}

}  // namespace

ExitStatus showEffective(const Session& session, const std::string& typedPath,
                         const std::string& user) {
  const std::string path = folderPath(session, typedPath);
  const std::uint32_t uid = uidOf(session, user);
  // The daemon answers 0 for whatever it cannot find out; this says what is wrong with the path.
  const Dictionary privileges = readPrivileges(session, path);
  aclOf(privileges, path);
  std::optional<std::uint32_t> bitmap = askBitmap(session, path, uid);
  if (*bitmap == 0) bitmap = askProgram(session, path, uid);
  if (!bitmap) return ExitStatus::failed;
  if (const auto status = printAnswer(session, path, uid)) {
    if (session.json || *status == ExitStatus::failed) return *status;
    session.out << printable(formatRights(*bitmap, isFolder(privileges))) << '\n';
    return *status;
  }
  if (session.json) {
    session.out << wire::writeJsonPretty(
                       Dictionary{{"path", path}, {"uid", uid}, {"bitmap", *bitmap}})
                << '\n';
  } else {
    session.out << printable(formatRights(*bitmap, isFolder(privileges))) << '\n';
  }
  return ExitStatus::done;
}

ExitStatus explainEffective(const Session& session, const std::string& typedPath,
                            const std::string& user) {
  const std::string path = folderPath(session, typedPath);
  const std::uint32_t uid = uidOf(session, user);
  return judgeAccess(session, "explain", {{"path", path}, {"uid", uid}},
                     {"--explain", "-p", path, "-u", std::to_string(uid)});
}

ExitStatus showWho(const Session& session, const std::string& typedPath) {
  const std::string path = folderPath(session, typedPath);
  return judgeAccess(session, "who", {{"path", path}}, {"--who", "-p", path});
}

}  // namespace paddock::keelhouse
