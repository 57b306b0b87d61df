#include "keelhouse/acl_commands.h"

#include "keelhouse/acl_changes.h"
#include "keelhouse/acl_view.h"
#include "keelhouse/denied_groups.h"
#include "keelhouse/folder_privileges.h"
#include "keelhouse/kernel_acl.h"
#include "keelhouse/named_share.h"
#include "keelhouse/projection_view.h"
#include "keelhouse/reply_status.h"
#include "keelhouse/terminal_text.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

void print(const Session& session, const std::string& path, const Array& acl, bool folder,
           Principals& principals) {
  if (session.json) {
    session.out << wire::writeJsonPretty(acl) << '\n';
  } else if (acl.empty()) {
    session.out << printable(path) << " has no ACL entries.\n";
  } else {
    session.out << formatAclTable(acl, folder, principals);
  }
}

// Replaces the path's ACL, and prints what was read back when it is that.
ExitStatus write(const Session& session, const std::string& path, const WantedAcl& wanted,
                 Principals& principals) {
  const Dictionary found = writePrivileges(session, path, {{"acl", sentAcl(wanted)}},
                                           "the ACL of " + path + " cannot be set");
  const Array& acl = aclOf(found, path);
  const bool folder = isFolder(found);
  if (const auto difference = differenceOf(wanted, acl, folder, principals)) {
    throw failure("the ACL of " + path + " was not taken over: " + *difference +
                  ", although the daemon reported success");
  }
  print(session, path, acl, folder, principals);
  noteGroupDenials(session, path, acl);
  return ExitStatus::done;
}

// The entries that the path would have if it took over what its parent folder makes inheritable.
Array inheritedAcl(const Session& session, const std::string& path) {
  const Dictionary reply =
      session.daemon.call("paddock_sharing", "fileInheritACL", {{"path", path}});
  if (const Array* acl = reply.array("acl")) return *acl;
  const std::string* error = reply.string("error");
  throw failure("what " + path + " inherits cannot be read: " +
                (error != nullptr ? explained(*error) : "the daemon's reply has no list"));
}

}  // namespace

ExitStatus showAcl(const Session& session, const std::string& typedPath) {
  const std::string path = folderPath(session, typedPath);
  const Dictionary privileges = readPrivileges(session, path);
  Principals principals(session);
  print(session, path, aclOf(privileges, path), isFolder(privileges), principals);
  if (!session.json && isListOverridden(path)) {
    session.out
        << "An SMB client has set this list, and the mode, the owner or the kernel's ACL was\n"
           "changed since. Where Samba serves the share by lists, it goes by the kernel\n"
           "(getfacl); the list is in force again when it is set again (keelhouse acl set).\n";
  }
  return ExitStatus::done;
}

ExitStatus showAclProjection(const Session& session, const std::string& typedPath) {
  const std::string path = folderPath(session, typedPath);
  const Dictionary privileges = readPrivileges(session, path);
  Principals principals(session);
  const Projection projection = makeProjection(
      aclOf(privileges, path), privileges, readKernelAcls(path, isFolder(privileges)), principals);
  if (session.json) {
    session.out << wire::writeJsonPretty(projectionValue(projection)) << '\n';
  } else {
    session.out << formatProjection(path, projection);
  }
  return ExitStatus::done;
}

ExitStatus setAcl(const Session& session, const std::string& typedPath,
                  const std::vector<std::string>& entries) {
  const std::string path = folderPath(session, typedPath);
  const std::vector<TypedEntry> typed = parseEntries(entries);
  Principals principals(session);
  return write(session, path, newEntries(typed, principals), principals);
}

ExitStatus addToAcl(const Session& session, const std::string& typedPath,
                    const std::vector<std::string>& entries, std::optional<std::size_t> number) {
  const std::string path = folderPath(session, typedPath);
  const std::vector<TypedEntry> typed = parseEntries(entries);
  Principals principals(session);
  WantedAcl added = newEntries(typed, principals);
  const Dictionary privileges = readPrivileges(session, path);
  WantedAcl wanted = withAdded(keptEntries(aclOf(privileges, path)), std::move(added), number);
  return write(session, path, wanted, principals);
}

ExitStatus removeFromAcl(const Session& session, const std::string& typedPath,
                         const std::vector<std::string>& words) {
  const std::string path = folderPath(session, typedPath);
  const std::vector<Removal> removals = parseRemovals(words);
  const Dictionary privileges = readPrivileges(session, path);
  Principals principals(session);
  const WantedAcl wanted = withRemoved(keptEntries(aclOf(privileges, path)), removals, principals);
  return write(session, path, wanted, principals);
}

ExitStatus inheritAcl(const Session& session, const std::string& typedPath, bool apply) {
  const std::string path = folderPath(session, typedPath);
  // The other question is answered with an empty list for a path that is not there.
  const Dictionary privileges = readPrivileges(session, path);
  const Array acl = inheritedAcl(session, path);
  Principals principals(session);
  if (apply) return write(session, path, keptEntries(acl), principals);
  print(session, path, acl, isFolder(privileges), principals);
  return ExitStatus::done;
}

}  // namespace paddock::keelhouse
