#include "keelhouse/access/effective_commands.h"

#include <unistd.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "keelhouse/access/acl_words.h"
#include "keelhouse/access/folder_privileges.h"
#include "keelhouse/access/principals.h"
#include "keelhouse/core/account_names.h"
#include "keelhouse/core/named_share.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/terminal_text.h"
#include "keelhouse/core/tree_program.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPlugin = "paddock_access";
constexpr const char* kProgram =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs";
constexpr long kNotFound = 404;

// Absent when root is to run the program itself.
std::optional<Dictionary> askDaemon(const Session& session, const std::string& operation,
                                    const Dictionary& request) {
  try {
    return session.daemon.call(kPlugin, operation, request);
  } catch (const Failure& failed) {
    if (!leavesItToRoot(failed)) throw;
  }
  return std::nullopt;
}

}  // namespace

bool leavesItToRoot(const Failure& failure) {
  if (::geteuid() != 0) return false;
  const auto* refusal = dynamic_cast<const Refusal*>(&failure);
  return failure.status() == ExitStatus::unreachable ||
         (refusal != nullptr && refusal->httpStatus() == kNotFound);
}

ExitStatus judgeAccess(const Session& session, const std::string& operation, Dictionary request,
                       std::vector<std::string> arguments) {
  if (session.json) {
    request.set("json", true);
    arguments.insert(arguments.begin(), "--json");
  }
  const auto reply = askDaemon(session, operation, request);
  if (!reply) return runTreeProgram(session, kProgram, arguments);
  if (const std::string* error = reply->string("error"))
    throw errorFailure("nobody can say who may do what", *error);
  const auto status = reply->integer("status");
  const std::string* output = reply->string("output");
  const std::string* errors = reply->string("errors");
  if (!status || output == nullptr || errors == nullptr)
    throw daemonFailure("the daemon's reply does not say what its program said");
  session.out << *output;
  session.notes << printableLines(*errors);
  return static_cast<ExitStatus>(*status);
}

namespace {

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
  return static_cast<std::uint32_t>(*bitmap) & acl::kAllPermissions;
}

// The program's own answer when the module has none, which may mean that it failed. Absent when the
// program failed, too, and has reported why.
std::optional<std::uint32_t> askProgram(const Session& session, const std::string& path,
                                        std::uint32_t uid) {
  std::ostringstream output;
  const Session quiet{session.daemon, output, session.notes, false, session.root};
  const ExitStatus status = judgeAccess(quiet, "effective", {{"path", path}, {"uid", uid}},
                                        {"-p", path, "-u", std::to_string(uid)});
  if (status != ExitStatus::done) return std::nullopt;
  return static_cast<std::uint32_t>(leadingInteger(output.str())) & acl::kAllPermissions;
}

// The answer for the path as a whole; in JSON the full answer. Absent where it is not available:
// neither the daemon nor this installation has the program.
std::optional<ExitStatus> printAnswer(const Session& session, const std::string& path,
                                      std::uint32_t uid) {
  const std::string operation = session.json ? "explain" : "answer";
  try {
    return judgeAccess(session, operation, {{"path", path}, {"uid", uid}},
                       {"--" + operation, "-p", path, "-u", std::to_string(uid)});
  } catch (const Failure& failed) {
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
  // The daemon returns 0 for whatever it cannot determine; this reports what is wrong with the
  // path.
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
