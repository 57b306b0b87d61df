#include "keelhouse/core/reply_status.h"

#include <cerrno>
#include <cstring>
#include <limits>
#include <system_error>

#include "base/status.h"
#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/terminal_text.h"
#include "protocol/keys.h"

namespace paddock::keelhouse {

namespace {

constexpr std::string_view kStatusKeys[] = {"status", protocol::kReadStatus,
                                            protocol::kWriteStatus};
constexpr std::string_view kErrorKeys[] = {"error", protocol::kReadError, protocol::kWriteError};

bool isFailedStatus(const Value* value) {
  if (value == nullptr) return false;
  if (const auto* number = value->integer()) return *number != 0;
  return value->unsignedInteger() != nullptr;
}

// The fact that holds whatever the reason was.
const char* factFor(std::int64_t status) {
  switch (status) {
    case ENOSPC:
      return "Make room on the volume, then repeat the command.";
    case USER_NOT_FOUND_ERR:
      return "There is no such user on the daemon's host (getent passwd NAME).";
    case GROUP_NOT_FOUND_ERR:
      return "There is no such group on the daemon's host (getent group NAME).";
    case CANNOT_CHANGE_PRIVS_ERR:
      return "What was changed before the failure stays.";
    case INVALID_ACL_ERR:
      return "What is stored there is no ACL that can be read. keelhouse acl set PATH ENTRY... "
             "replaces it.";
    default:
      return "";
  }
}

// The probable reason, when none is given.
const char* guessFor(std::int64_t status) {
  switch (status) {
    case EACCES:
    case EPERM:
      return "Check who may change this, and the credentials that were given.";
    case ENOENT:
      return "Check that the path or the name is written as it is stored.";
    case EEXIST:
      return "Choose another name.";
    case EINVAL:
      return "Check the names and values that were given.";
    case CANNOT_RETRIEVE_SHARE_POINTS_ERR:
      return "The directory or the exports file cannot be read.";
    case CANNOT_SAVE_SHARE_POINT_ERR:
      return "A name may be taken by another share point (keelhouse share list), or an NFS client "
             "or option cannot be written to the exports file.";
    case CANNOT_CHANGE_PRIVS_ERR:
      return "The file system may be read-only, or the path may be missing.";
    case CANNOT_PROPAGATE_PRIVS_ERR:
      return "The program copyprivs may be missing beside paddock_sharing.so, or there is no room "
             "in /tmp.";
    case FILE_NOT_FOUND_ERR:
      return "Check that the path is written as it is on the server.";
    case CANNOT_SET_ACL_FILE_ERR:
      return "The file system may be read-only or full, may keep no ACLs, or may hold fewer "
             "entries than these.";
    case CANNOT_SET_QUOTA_STATE_ERR:
      return "The volume or the kernel may keep no quotas. With quota_backend = \"accounting\" "
             "below [volumes] in the daemon's configuration usage can be seen on any volume.";
    default:
      return "";
  }
}

Failure advised(const std::string& text, std::int64_t status) {
  const std::string fact = factFor(status);
  return daemonFailure(text + (fact.empty() ? "" : "\n" + fact)).withGuess(guessFor(status));
}

bool isModuleCode(std::int64_t status) {
  return status >= USER_NOT_FOUND_ERR && status <= CANNOT_SET_QUOTA_STATE_ERR;
}

// What errno's macros call it; null for a number that none has.
const char* errnoName(std::int64_t status) {
  const bool fits = status > 0 && status <= std::numeric_limits<int>::max();
  return fits ? ::strerrorname_np(static_cast<int>(status)) : nullptr;
}

}  // namespace

bool reportsFailure(const Dictionary& reply) {
  for (const auto key : kStatusKeys) {
    if (isFailedStatus(reply.find(key))) return true;
  }
  for (const auto key : kErrorKeys) {
    if (reply.string(key) != nullptr) return true;
  }
  return false;
}

std::string nameAndNumber(std::int64_t status) {
  std::string name = "a status without a name";
  if (isModuleCode(status)) {
    name = sharing_error_string(static_cast<Status>(status));
  } else if (const char* macro = errnoName(status)) {
    name = macro;
  }
  return " (" + name + ", " + std::to_string(status) + ")";
}

std::string describeStatus(const std::string& action, std::int64_t status) {
  const bool hasText = !isModuleCode(status) && errnoName(status) != nullptr;
  return action +
         (hasText ? std::string(": ") + sharing_error_string(static_cast<Status>(status))
                  : std::string()) +
         nameAndNumber(status);
}

std::string describeError(const std::string& action, const std::string& errorText) {
  const auto status = statusOfText(errorText);
  return status ? describeStatus(action, *status) : action + ": " + errorText;
}

Failure statusFailure(const std::string& action, std::int64_t status) {
  return advised(describeStatus(action, status), status);
}

Failure errorFailure(const std::string& action, const std::string& errorText) {
  if (const auto status = statusOfText(errorText)) return statusFailure(action, *status);
  return daemonFailure(describeError(action, errorText));
}

void requireStatus(const Dictionary& reply, std::string_view key, const std::string& action) {
  const auto status = reply.integer(key);
  if (!status) throw daemonFailure(action + ": the daemon's reply has no " + std::string(key));
  if (*status == 0) return;
  // What an operation says of its status stands in the place of the number's text.
  const std::string* message = reply.string("message");
  if (message == nullptr) throw statusFailure(action, *status);
  throw advised(action + ": " + printable(*message) + nameAndNumber(*status), *status);
}

std::optional<Dictionary> askIfLoaded(const Session& session, const char* plugin,
                                      const char* operation, const Dictionary& request) {
  try {
    return session.daemon.call(plugin, operation, request);
  } catch (const Failure& failure) {
    if (std::string(failure.what()).find("(HTTP 404)") != std::string::npos) return std::nullopt;
    throw;
  }
}

std::string messageOf(const Dictionary& reply) {
  if (const std::string* message = reply.string("message")) return printable(*message);
  const auto status = static_cast<int>(reply.integer("status").value_or(EIO));
  return std::generic_category().message(status);
}

void requireDone(const Dictionary& reply, const std::string& action) {
  const auto status = reply.integer("status").value_or(EIO);
  if (status == 0) return;
  throw daemonFailure(action + ": " + messageOf(reply) + nameAndNumber(status));
}

std::string textOf(const Dictionary& reply, const char* key) {
  const std::string* text = reply.string(key);
  return text != nullptr ? *text : std::string();
}

std::string firstValue(const Dictionary& record, const char* attribute) {
  const Array* values = record.array(attribute);
  const std::string* text =
      values != nullptr && !values->empty() ? values->front().string() : nullptr;
  return text != nullptr ? *text : std::string();
}

}  // namespace paddock::keelhouse
