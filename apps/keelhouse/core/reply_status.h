// Whether a reply reports a failure, and how to say so; and texts in replies.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/value.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Whether one of the reply's statuses ("status", "readStatus", "writeStatus") is an integer other
// than 0, or one of its error texts is there.
bool reportsFailure(const Dictionary& reply);

// " (ENOENT, 2)": a status by its name and its number.
std::string nameAndNumber(std::int64_t status);

// What was tried ("/srv/a cannot be shared"), why it failed, and the status by name and number:
// "... (CANNOT_SAVE_SHARE_POINT_ERR, 100076)", "...: File exists (EEXIST, 17)".
std::string describeStatus(const std::string& action, std::int64_t status);
// The same for an error text of a reply ("INVALID_ACL_ERR"); one that is no status's stands as it
// is.
std::string describeError(const std::string& action, const std::string& errorText);

// The two as failures that the daemon reported: below them what is to be done whatever the reason
// was, and as their guess what it may have been.
Failure statusFailure(const std::string& action, std::int64_t status);
Failure errorFailure(const std::string& action, const std::string& errorText);

// Throws statusFailure of the status under `key` when it is not 0.
void requireStatus(const Dictionary& reply, std::string_view key, const std::string& action);

// Operations of plug-ins that a daemon need not have.

// The reply of an operation; absent where the daemon has no such plug-in. Throws Failure otherwise.
std::optional<Dictionary> askIfLoaded(const Session& session, const char* plugin,
                                      const char* operation, const Dictionary& request);

// What a reply with a "status" other than 0 says of it.
std::string messageOf(const Dictionary& reply);

// Throws Failure with that, unless the reply's status is 0. `action` says what was tried.
void requireDone(const Dictionary& reply, const std::string& action);

// The text under a key; empty when there is none.
std::string textOf(const Dictionary& reply, const char* key);
// The first value of a record's attribute; empty when it has none, or one that is no text.
std::string firstValue(const Dictionary& record, const char* attribute);

}  // namespace paddock::keelhouse
