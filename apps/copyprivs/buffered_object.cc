#include "copyprivs/buffered_object.h"

#include <cerrno>

#include "platform/linux/acl/posix_acl.h"
#include "platform/linux/privileges/file_mode.h"

namespace paddock::copyprivs {

namespace {

constexpr mode_t kPermissionBits = 0777;

void setPermissionBits(mode_t& mode, const posix_acl::Classes& classes) {
  mode = (mode & ~kPermissionBits) | posix_acl::modeOf(classes);
}

// As posix_acl_update_mode() in the kernel.
int setAccess(ObjectState& state, std::string_view value) {
  auto acl = posix_acl::decode(value);
  if (!acl) return EINVAL;
  posix_acl::Classes classes = acl->classes;
  if (acl->mask) classes.group = *acl->mask;
  setPermissionBits(state.mode, classes);
  state.access = acl->mask ? Attribute{0, std::string(value)} : Attribute{};
  return 0;
}

// As posix_acl_chmod().
void setMode(ObjectState& state, mode_t mode) {
  state.mode = (state.mode & S_IFMT) | (mode & kModeBits);
  auto acl = state.access.isThere() ? posix_acl::decode(state.access.value) : std::nullopt;
  if (!acl) return;
  const posix_acl::Classes classes = posix_acl::classesOf(mode);
  acl->classes.owner = classes.owner;
  acl->classes.others = classes.others;
  (acl->mask ? *acl->mask : acl->classes.group) = classes.group;
  state.access.value = posix_acl::encode(*acl);
}

}  // namespace

Attribute& BufferedAttributes::find(const std::string& name) const {
  if (name == list_) return state_.list;
  return name == posix_acl::kAccessAttribute ? state_.access : state_.passedOn;
}

int BufferedAttributes::get(int, const std::string& name, std::string& value) const {
  const Attribute& attribute = find(name);
  value = attribute.value;
  return attribute.error;
}

int BufferedAttributes::set(int, const std::string& name, std::string_view value) const {
  Attribute& attribute = find(name);
  if (attribute.error == EOPNOTSUPP) return EOPNOTSUPP;
  if (&attribute == &state_.access) return setAccess(state_, value);
  attribute = {0, std::string(value)};
  return 0;
}

int BufferedAttributes::remove(int, const std::string& name) const {
  Attribute& attribute = find(name);
  if (!attribute.isThere()) return attribute.error;
  attribute = {};
  return 0;
}

nt_acl::OpenObject BufferedObject::object() const {
  const ObjectState& state = attributes_.state();
  nt_acl::OpenObject object;
  object.status.st_mode = state.mode;
  object.status.st_uid = state.uid;
  object.status.st_gid = state.gid;
  return object;
}

int BufferedObject::noted(int error) {
  if (error_ == 0) error_ = error;
  return error;
}

int BufferedObject::refresh() { return refreshes_ ? noted(acls_.refresh(object())) : 0; }

acl::List* BufferedObject::getAcl() {
  std::unique_ptr<acl::List> list;
  const int error = acls_.readFrom(object(), list);
  if (error != 0 && error != ENOENT) noted(error);
  if (error != 0) errno = error;
  if (list && list->undecodable) sawInvalidList_ = true;
  return list.release();
}

int BufferedObject::setAcl(acl::List* list) {
  const int error = noted(acls_.writeTo(object(), *list));
  if (error == 0) return 0;
  errno = error;
  return -1;
}

int BufferedObject::changeOwner(std::uint32_t uid, std::uint32_t gid) {
  ObjectState& state = attributes_.state();
  const bool isNew =
      (uid != kUnchanged && uid != state.uid) || (gid != kUnchanged && gid != state.gid);
  if (uid != kUnchanged) state.uid = uid;
  if (gid != kUnchanged) state.gid = gid;
  // As chown_common() in the kernel, for any caller; it is not called without a change.
  if (isNew && !state.isFolder()) {
    const mode_t group = (state.mode & S_IXGRP) != 0 ? S_ISGID : 0;
    state.mode &= ~(S_ISUID | group);
  }
  return refresh();
}

int BufferedObject::readMode(mode_t& mode) {
  const ObjectState& state = attributes_.state();
  const int error = noted(paddock::readMode(attributes_, -1, state.mode, mode));
  mode |= state.mode & S_IFMT;
  return error;
}

int BufferedObject::changeMode(mode_t mode) {
  ObjectState& state = attributes_.state();
  const int error = noted(writeMode(attributes_, -1, mode, [&](mode_t masked) {
    setMode(state, masked);
    return 0;
  }));
  return error != 0 ? error : refresh();
}

}  // namespace paddock::copyprivs
