// A look at objects by their names, without opening them.
#pragma once

#include <string>

#include "copyprivs/object_state.h"
#include "platform/linux/privileges/object_status.h"

namespace paddock::copyprivs {

// Two looks at a name may meet two objects, so what comes of this is good for one answer alone:
// that there is nothing to be done. It costs half of holding the object first.
//
// Lives on the thread that calls it, which gets a working folder of its own.
class NamedObjects {
 public:
  NamedObjects();

  // Whether this can be used: not where a thread may have no working folder of its own.
  bool isUsable() const { return isUsable_; }
  // Goes to the folder. False when that is not possible.
  bool enter(int folder);
  // 0 or an errno; `value` empty then. Of a link itself.
  static int get(const char* object, const char* name, std::string& value);

 private:
  const bool isUsable_;
};

}  // namespace paddock::copyprivs
