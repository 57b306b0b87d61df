#include "copyprivs/starting_folder.h"

#include <cerrno>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "base/system_call.h"
#include "copyprivs/folder_opening.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/files/path_walk.h"
#include "platform/linux/privileges/linux_privileged_objects.h"
#include "platform/services.h"

namespace paddock::copyprivs {

namespace {

CannotStart because(const std::string& what, int error) {
  return CannotStart(what + ": " + std::generic_category().message(error));
}

// A slash at the end would make a link that is followed of one that is not.
std::string withoutSlashes(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

struct ListRelease {
  void operator()(acl::List* list) const { (void)services().acl->acl_free(list); }
};

void checkList(PrivilegedObject& object, const std::string& path) {
  const std::unique_ptr<acl::List, ListRelease> list(object.getAcl());
  if (!list && errno != ENOENT) throw because("cannot read the ACL of " + path, errno);
  if (list && services().acl->acl_valid(list.get()) != 0) {
    throw CannotStart("the ACL of " + path + " is invalid, so there is nothing to push from it");
  }
}

Levels::Pointer levelsOf(PrivilegedObject& object, const std::string& path) {
  checkList(object, path);
  InheritableACL* entries = nullptr;
  const int error = GetInheritableACL(object, entries, true);
  if (error != 0) throw because("cannot read the ACL of " + path, error);
  return std::make_shared<const Levels>(entries, nullptr);
}

}  // namespace

StartingFolder findStartingFolder(const std::string& path) {
  if (path.find('\0') != std::string::npos) throw because("cannot open " + path, ENOENT);
  StartingFolder folder;
  folder.path = withoutSlashes(path);
  const std::size_t name = folder.path.rfind('/') + 1;
  FileDescriptor above;
  std::optional<RefusedLink> refused;
  int error =
      holdObject(name > 0 ? folder.path.substr(0, name) : ".", PathUse::changing, above, &refused);
  if (refused) throw CannotStart("cannot open " + path + ": " + textWithOwner(*refused));
  // Of the highest folder nothing is left but the folder itself.
  const char* last = folder.path == "/" ? "." : folder.path.c_str() + name;
  if (error == 0) error = hold(above.get(), last, folder.held, folder.status);
  if (error != 0) throw because("cannot open " + path, error);
  if (S_ISLNK(folder.status.type)) throw CannotStart(path + " is a symbolic link");
  if (!folder.status.isFolder()) throw CannotStart(path + " is no folder");
  return folder;
}

Propagation propagationFrom(const StartingFolder& folder, std::uint32_t what,
                            const FileAcls& acls) {
  FileDescriptor descriptor;
  const int error = openFolder(folder.held.get(), descriptor);
  if (error != 0) throw because("cannot open " + folder.path, error);
  LinuxPrivilegedObject object(std::move(descriptor), acls);
  mode_t mode = 0;
  const int unreadable = object.readMode(mode);
  if (unreadable != 0) throw because("cannot read the mode of " + folder.path, unreadable);
  Propagation propagation;
  propagation.privs = {what, folder.status.owner, folder.status.group,
                       static_cast<std::uint16_t>(mode & 07777), nullptr};
  if ((what & kSetInheritedEntries) != 0) propagation.levels = levelsOf(object, folder.path);
  return propagation;
}

}  // namespace paddock::copyprivs
