// An object whose privileges are read once and changed in memory, as the kernel would change them,
// so that the result of several steps is known before the first is executed.
#pragma once

#include <string>
#include <string_view>

#include "copyprivs/change_steps.h"
#include "platform/linux/files/file_object.h"
#include "platform/linux/privileges/file_acls.h"
#include "platform/linux/privileges/stored_acl.h"
#include "platform/privileged_object.h"

namespace paddock::copyprivs {

// The attributes of a state, independent of the descriptor passed. Setting an access ACL changes
// the mode, too.
class BufferedAttributes final : public ExtendedAttributes {
 public:
  // `list` is the name of the attribute that holds the extended ACL.
  explicit BufferedAttributes(std::string list) : list_(std::move(list)) {}

  ObjectState& state() { return state_; }
  const ObjectState& state() const { return state_; }

  int get(int object, const std::string& name, std::string& value) const override;
  int set(int object, const std::string& name, std::string_view value) const override;
  int remove(int object, const std::string& name) const override;

 private:
  Attribute& find(const std::string& name) const;

  const std::string list_;
  // Mutable because the interface is const: other implementations change files.
  mutable ObjectState state_;
};

class BufferedObject final : public PrivilegedObject {
 public:
  // `acls` operates on `attributes`; both must outlive this object. Without `refreshes` only owner
  // and mode are changed; the list is left as it is.
  BufferedObject(BufferedAttributes& attributes, const FileAcls& acls, bool refreshes)
      : attributes_(attributes), acls_(acls), refreshes_(refreshes) {}

  // The errno of the first call that failed, 0 for none. A missing list is no failure.
  int error() const { return error_; }
  bool sawInvalidList() const { return sawInvalidList_; }

  acl::List* getAcl() override;
  int setAcl(acl::List* list) override;
  int changeOwner(std::uint32_t uid, std::uint32_t gid) override;
  int readMode(mode_t& mode) override;
  int changeMode(mode_t mode) override;

 private:
  nt_acl::OpenObject object() const;
  int refresh();
  int noted(int error);

  BufferedAttributes& attributes_;
  const FileAcls& acls_;
  const bool refreshes_;
  int error_ = 0;
  bool sawInvalidList_ = false;
};

}  // namespace paddock::copyprivs
