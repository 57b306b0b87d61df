#include "keelhouse/core/local_accounts.h"

#include <limits>

#include "base/text.h"
#include "keelhouse/core/reply_status.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPlugin = "paddock_directory";
constexpr const char* kNode = "/Local";
// All nodes, one after the other.
constexpr const char* kSearchNode = "/Search";

const char* recordTypeOf(PrincipalType type) {
  return type == PrincipalType::user ? "dsRecTypeStandard:Users" : "dsRecTypeStandard:Groups";
}

const char* idAttributeOf(PrincipalType type) {
  return type == PrincipalType::user ? "dsAttrTypeStandard:UniqueID"
                                     : "dsAttrTypeStandard:PrimaryGroupID";
}

std::string firstValue(const Dictionary& record, const char* attribute) {
  const Array* values = record.array(attribute);
  const std::string* text =
      values != nullptr && !values->empty() ? values->front().string() : nullptr;
  return text != nullptr ? *text : "";
}

std::optional<std::uint32_t> idOf(const std::string& text) {
  const auto number = parseInteger(text);
  if (!number || *number < 0 || *number > std::numeric_limits<std::uint32_t>::max()) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(*number);
}

LocalAccount accountOf(PrincipalType type, const Dictionary& record) {
  return {type, firstValue(record, "dsAttrTypeStandard:RecordName"),
          parseGuid(firstValue(record, "dsAttrTypeStandard:GeneratedUID")),
          idOf(firstValue(record, idAttributeOf(type)))};
}

void appendAccounts(std::vector<LocalAccount>& accounts, const Session& session,
                    PrincipalType type) {
  const Dictionary reply =
      session.daemon.call(kPlugin, "listRecords", {{"node", kNode}, {"type", recordTypeOf(type)}});
  requireStatus(reply, "status", "the directory's records cannot be listed");
  const Array* records = reply.array("records");
  if (records == nullptr) return;
  for (const Value& record : *records) {
    if (record.dictionary() != nullptr) accounts.push_back(accountOf(type, *record.dictionary()));
  }
}

}  // namespace

std::optional<LocalAccount> findAccount(const Session& session, PrincipalType type,
                                        const std::string& name) {
  const Dictionary reply = session.daemon.call(
      kPlugin, "getRecord", {{"node", kSearchNode}, {"type", recordTypeOf(type)}, {"name", name}});
  requireStatus(reply, "status", "the directory's record of " + name + " cannot be read");
  const Dictionary* record = reply.dictionary("record");
  if (record == nullptr) return std::nullopt;
  return accountOf(type, *record);
}

std::vector<LocalAccount> listLocalAccounts(const Session& session) {
  std::vector<LocalAccount> accounts;
  appendAccounts(accounts, session, PrincipalType::user);
  appendAccounts(accounts, session, PrincipalType::group);
  return accounts;
}

}  // namespace paddock::keelhouse
