// Denials of groups that the kernel cannot represent, as reported after a change of a list, through
// the plug-in paddock_denials.
#pragma once

#include <functional>
#include <string>

#include "base/value.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// After the list of `path`, an absolute one, became `acl`: notes whom the kernel lets in although
// an entry denies a group that they are in, and what would keep them out. A list that is kept
// strict is brought up to date, and then it is true. Nothing is asked where no entry denies a
// group.
bool noteGroupDenials(const Session& session, const std::string& path, const Array& acl);

// `acl strict`: keeps the list so, or no longer. Throws Failure when it cannot.
ExitStatus keepStrict(const Session& session, const std::string& path, bool strict);

// What `change` does, and then keeps the list strict; what is printed is the list that comes of
// both.
ExitStatus changeStrictly(const Session& session, const std::string& path,
                          const std::function<void(const Session&)>& change);

// The lines for one list. `denials` is what getDenied has.
std::string deniedText(const std::string& path, const Array& denials, const Array& acl);

}  // namespace paddock::keelhouse
