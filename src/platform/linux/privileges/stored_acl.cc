#include "platform/linux/privileges/stored_acl.h"

#include <cerrno>
#include <utility>

#include "base/system_call.h"
#include "platform/acl_list.h"
#include "platform/linux/acl/access_mask.h"
#include "platform/linux/acl/well_known_sids.h"

namespace paddock::nt_acl {

namespace {

// What an SMB server makes of a descriptor without a list, said by one: where the control word says
// that there is a list everybody may do everything, else nobody anything.
std::vector<Ace> absentList(std::uint16_t control) {
  if ((control & kControlListPresent) == 0) return {};
  return {{kAllowed, 0, maskOf(acl::kAllPermissions) | kSynchronizeMask, everyoneSid(), {}}};
}

}  // namespace

int lookAt(int number, OpenObject& object) {
  object.number = number;
  return errnoOf([&] { return ::fstat(number, &object.status); });
}

int readValue(const ExtendedAttributes& attributes, int object, const std::string& name,
              std::optional<std::string>& value) {
  value.reset();
  std::string read;
  const int error = attributes.get(object, name, read);
  if (error == 0) value = std::move(read);
  return error == ENODATA ? 0 : error;
}

int readStoredAcl(const ExtendedAttributes& attributes, const std::string& name,
                  const OpenObject& object, StoredAcl& stored) {
  stored = {};
  const int error = readValue(attributes, object.number, name, stored.value);
  if (error != 0 || !stored.value) return error;
  stored.descriptor = decode(*stored.value);
  if (!stored.descriptor) return 0;
  Descriptor& descriptor = *stored.descriptor;
  if (!descriptor.list) descriptor.list = absentList(descriptor.control);
  stored.list = withoutTail(std::move(*descriptor.list), object.isFolder());
  descriptor.list.reset();
  if (stored.list->entries.size() <= acl::kMaximumEntries) return 0;
  stored.descriptor.reset();
  stored.list.reset();
  return 0;
}

}  // namespace paddock::nt_acl
