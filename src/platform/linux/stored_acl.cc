#include "platform/linux/stored_acl.h"

#include <cerrno>
#include <utility>

#include "base/system_call.h"
#include "platform/acl_list.h"
#include "platform/linux/access_mask.h"
#include "platform/linux/well_known_sids.h"

namespace paddock::nt_acl {

namespace {

// Where there is no list everybody may do everything ([MS-DTYP] 2.5.3.2), which can be said as
// well.
std::vector<Ace> everythingToEverybody() {
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
  stored.list = withoutTail(std::move(stored.descriptor->list).value_or(everythingToEverybody()),
                            object.isFolder());
  stored.descriptor->list.reset();
  if (stored.list->entries.size() <= acl::kMaximumEntries) return 0;
  stored.descriptor.reset();
  stored.list.reset();
  return 0;
}

}  // namespace paddock::nt_acl
