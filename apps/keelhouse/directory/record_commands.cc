#include "keelhouse/directory/record_commands.h"

#include <unistd.h>

#include <array>
#include <utility>

#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/input.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/terminal_text.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr std::array<std::pair<const char*, const char*>, 4> kShortTypes = {
    {{"users", "dsRecTypeStandard:Users"},
     {"groups", "dsRecTypeStandard:Groups"},
     {"sharepoints", "dsRecTypeStandard:SharePoints"},
     {"mounts", "dsRecTypeStandard:Mounts"}}};

void addValue(Dictionary& attributes, const std::string& name, std::string_view value) {
  if (attributes.array(name) == nullptr) attributes.set(name, Array{});
  attributes.find(name)->array()->emplace_back(value);
}

}  // namespace

std::string recordType(const std::string& text) {
  for (const auto& [shortForm, type] : kShortTypes) {
    if (text == shortForm) return type;
  }
  if (text.find(':') != std::string::npos && isValidUtf8(text)) return text;
  throw usageFailure("\"" + text +
                     "\" is no record type: users, groups, sharepoints, mounts, or a full name "
                     "such as dsRecTypeStandard:Users");
}

std::string attributeName(const std::string& text) {
  return text.find(':') == std::string::npos ? "dsAttrTypeStandard:" + text : text;
}

Dictionary parseAttributes(const std::vector<std::string>& words) {
  Dictionary attributes;
  for (const std::string& word : words) {
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw usageFailure("\"" + word + "\" is not ATTRIBUTE=VALUE");
    }
    if (!isValidUtf8(word)) throw usageFailure("\"" + word + "\" is not UTF-8");
    addValue(attributes, attributeName(word.substr(0, equals)),
             std::string_view(word).substr(equals + 1));
  }
  return attributes;
}

namespace {

constexpr const char* kPlugin = "paddock_directory";
constexpr const char* kRecordName = "dsAttrTypeStandard:RecordName";

void checkName(const std::string& name) {
  if (name.empty()) throw usageFailure("the record's name is empty");
  if (!isValidUtf8(name)) throw usageFailure("the record's name is not UTF-8");
}

Dictionary requestOn(const NodeAccess& access) {
  Dictionary request;
  if (!access.node.empty()) request.set("node", access.node);
  setCredentials(request, readCredentials(access.account));
  return request;
}

Dictionary requestFor(const NodeAccess& access, const std::string& type, const std::string& name) {
  checkName(name);
  const std::string fullType = recordType(type);
  Dictionary request = requestOn(access);
  request.set("type", fullType);
  request.set("name", name);
  return request;
}

void printValues(std::ostream& out, const std::string& attribute, const Value& values) {
  if (values.array() == nullptr) return;
  for (const Value& value : *values.array()) {
    out << printable(attribute) << ": ";
    out << (value.string() != nullptr ? printable(*value.string()) : wire::writeJson(value));
    out << '\n';
  }
}

// The first name of a record, or nothing.
const std::string* nameOf(const Value& record) {
  const Dictionary* attributes = record.dictionary();
  const Array* names = attributes != nullptr ? attributes->array(kRecordName) : nullptr;
  return names == nullptr || names->empty() ? nullptr : names->front().string();
}

// The record that `request` names. Throws Failure where there is none.
Dictionary requireRecord(const Session& session, const Dictionary& request, const std::string& type,
                         const std::string& name) {
  const Dictionary reply = session.daemon.call(kPlugin, "getRecord", request);
  requireStatus(reply, "status", printable(name) + " cannot be read");
  const Dictionary* record = reply.dictionary("record");
  if (record != nullptr) return *record;
  throw failure("there is no " + printable(name) + " of type " + recordType(type) +
                "\nSee what there is: keelhouse record list TYPE");
}

}  // namespace

ExitStatus listRecords(const Session& session, const NodeAccess& access, const std::string& type) {
  const std::string fullType = recordType(type);
  Dictionary request = requestOn(access);
  request.set("type", fullType);
  const Dictionary reply = session.daemon.call(kPlugin, "listRecords", request);
  requireStatus(reply, "status", "the records cannot be listed");
  const Array* found = reply.array("records");
  const Array records = found != nullptr ? *found : Array{};
  if (session.json) {
    session.out << wire::writeJsonPretty(records) << '\n';
    return ExitStatus::done;
  }
  for (const Value& record : records) {
    const std::string* name = nameOf(record);
    session.out << (name != nullptr ? printable(*name) : "-") << '\n';
  }
  return ExitStatus::done;
}

ExitStatus showRecord(const Session& session, const NodeAccess& access, const std::string& type,
                      const std::string& name) {
  const Dictionary record = requireRecord(session, requestFor(access, type, name), type, name);
  if (session.json) {
    session.out << wire::writeJsonPretty(record) << '\n';
    return ExitStatus::done;
  }
  for (const auto& entry : record) printValues(session.out, entry.key, entry.value);
  return ExitStatus::done;
}

ExitStatus putRecord(const Session& session, const NodeAccess& access, const std::string& type,
                     const std::string& name, const std::vector<std::string>& attributes,
                     const std::vector<std::string>& removals) {
  Dictionary parsed = parseAttributes(attributes);
  Array removed;
  for (const std::string& word : removals) {
    const std::string attribute = attributeName(word);
    if (parsed.contains(attribute)) {
      throw usageFailure(printable(word) + " cannot be set and removed at once");
    }
    removed.emplace_back(attribute);
  }
  Dictionary request = requestFor(access, type, name);
  if (parsed.empty() && !removed.empty()) requireRecord(session, request, type, name);
  if (!removed.empty()) request.set("removeAttributes", std::move(removed));
  request.set("attributes", std::move(parsed));
  requireStatus(session.daemon.call(kPlugin, "putRecord", request), "status",
                name + " cannot be written");
  return ExitStatus::done;
}

ExitStatus deleteRecord(const Session& session, const NodeAccess& access, const std::string& type,
                        const std::string& name) {
  requireStatus(session.daemon.call(kPlugin, "deleteRecord", requestFor(access, type, name)),
                "status", name + " cannot be deleted");
  return ExitStatus::done;
}

ExitStatus setPassword(const Session& session, const NodeAccess& access, const std::string& name,
                       int passwordDescriptor) {
  checkName(name);
  const bool bothFromInput = !access.account.name.empty() &&
                             access.account.passwordDescriptor < 0 && passwordDescriptor < 0 &&
                             ::isatty(STDIN_FILENO) != 1;
  if (bothFromInput) {
    throw usageFailure("standard input has one password: use --admin-password-fd too");
  }
  Dictionary request = requestOn(access);
  request.set("name", name);
  request.set("password", readPassword(passwordDescriptor, "New password of " + name, true));
  requireStatus(session.daemon.call(kPlugin, "setPassword", request), "status",
                "the password of " + name + " cannot be set");
  return ExitStatus::done;
}

}  // namespace paddock::keelhouse
