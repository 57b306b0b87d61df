#include "keelhouse/share/share_names.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/reply_status.h"
#include "protocol/keys.h"
#include "samba/samba_text.h"

namespace paddock::keelhouse {

namespace {

void checkName(const std::optional<std::string>& name, const std::string& option) {
  if (!name) return;
  if (name->empty()) throw usageFailure(option + " cannot be empty");
  if (!isValidUtf8(*name)) throw usageFailure(option + " is not UTF-8");
  if (printable(*name) != *name) {
    throw usageFailure(option + " holds a control character: " + printable(*name));
  }
}

void checkLength(const std::optional<std::string>& name, const std::string& option,
                 std::size_t maximum) {
  if (!name || utf8Length(*name) <= maximum) return;
  throw usageFailure(option + " can have " + std::to_string(maximum) + " characters, and has " +
                     std::to_string(utf8Length(*name)));
}

// The other owner of the name; empty when there is none.
std::string holderOf(const Array& sharePoints, const std::string& path, const char* key,
                     const std::string& name) {
  for (const Value& value : sharePoints) {
    const Dictionary* other = value.dictionary();
    if (other == nullptr || textOf(*other, "path") == path) continue;
    if (samba::shareNameKey(textOf(*other, key)) == samba::shareNameKey(name)) {
      return textOf(*other, "path");
    }
  }
  return {};
}

}  // namespace

void requireFreeNames(const Session& session, const std::string& path,
                      const ShareChanges& changes) {
  const std::pair<const char*, const std::optional<std::string>*> names[] = {
      {"name", &changes.name},
      {protocol::kNameOverVSP, &changes.vspName},
      {protocol::kNameOverSMB, &changes.smbName},
      {protocol::kNameOverFTP, &changes.ftpName}};
  if (std::none_of(std::begin(names), std::end(names),
                   [](const auto& name) { return name.second->has_value(); })) {
    return;
  }
  const Dictionary reply = session.daemon.call("paddock_sharing", "getSharePointList", {});
  requireStatus(reply, protocol::kReadStatus, "the names of the shares cannot be read");
  const Array* list = reply.array(protocol::kSharePointList);
  if (list == nullptr) return;
  for (const auto& [key, name] : names) {
    if (!*name || !isValidUtf8(**name)) continue;
    const std::string holder = holderOf(*list, path, key, **name);
    if (holder.empty()) continue;
    throw failure("\"" + printable(**name) + "\" is taken by the share " + printable(holder) +
                  " (" + key + ")\nNothing was changed.");
  }
}

void checkShareNames(const ShareChanges& changes) {
  checkName(changes.name, "--name");
  checkName(changes.vspName, "--vsp-name");
  checkName(changes.smbName, "--smb-name");
  checkName(changes.ftpName, "--ftp-name");
  checkLength(changes.vspName, "--vsp-name", kMaximumVspNameLength);
}

bool isNumberedName(const std::string& wanted, const std::string& name) {
  const std::size_t dash = name.rfind('-');
  if (dash == std::string::npos || !wanted.starts_with(name.substr(0, dash))) return false;
  const std::string number = name.substr(dash + 1);
  return !number.empty() && number.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace paddock::keelhouse
