// Whether a reply reports a failure, and how to say so.
#pragma once

#include <string>
#include <string_view>

#include "base/value.h"

namespace paddock::keelhouse {

// Whether one of the reply's statuses ("status", "readStatus", "writeStatus") is an integer other
// than 0, or one of its error texts is there.
bool reportsFailure(const Dictionary& reply);

// An error text of a reply ("INVALID_ACL_ERR"), and below it what to do.
std::string explained(const std::string& errorText);

// Throws Failure with the text of the status under `key` when it is not 0. `action` says what was
// tried ("/srv/a cannot be shared").
void requireStatus(const Dictionary& reply, std::string_view key, const std::string& action);

}  // namespace paddock::keelhouse
