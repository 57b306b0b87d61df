#include "paddock_directory/record_operations.h"

#include <cerrno>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/state_text.h"
#include "paddock/request_conditions.h"
#include "paddock_directory/replies.h"
#include "platform/directory.h"
#include "platform/directory_values.h"
#include "platform/linux/directory/local_node.h"
#include "platform/search_node.h"
#include "protocol/keys.h"

namespace paddock::records {

namespace {

// The text under the key; null without one.
const std::string* optionalText(const Dictionary& request, const char* key) {
  const Value* value = request.find(key);
  if (value == nullptr) return nullptr;
  if (value->string() == nullptr) throw DirectoryError(EINVAL, std::string(key) + " is no string");
  return value->string();
}

const std::string& required(const Dictionary& request, const char* key) {
  const std::string* text = optionalText(request, key);
  if (text == nullptr || text->empty())
    throw DirectoryError(EINVAL, std::string(key) + " is missing");
  return *text;
}

Dictionary attributesOf(const Dictionary& request) {
  const Value* value = request.find("attributes");
  if (value == nullptr) return {};
  const Dictionary* attributes = value->dictionary();
  if (attributes == nullptr) throw DirectoryError(EINVAL, "attributes is no dictionary");
  attributeChanges(*attributes);  // throws when they cannot be set
  return *attributes;
}

// The names under "removeAttributes".
std::vector<std::string> removalsOf(const Dictionary& request) {
  const Value* value = request.find("removeAttributes");
  if (value == nullptr) return {};
  const Array* names = value->array();
  if (names == nullptr) throw DirectoryError(EINVAL, "removeAttributes is no array");
  std::vector<std::string> removals;
  for (const Value& name : *names) {
    if (name.string() == nullptr)
      throw DirectoryError(EINVAL, "removeAttributes holds what is no name");
    requireDirectoryName(*name.string(), "attribute");
    if (*name.string() == schema::kRecordName || *name.string() == schema::kRecordType)
      throw DirectoryError(EINVAL, *name.string() + " cannot be removed");
    removals.push_back(*name.string());
  }
  return removals;
}

std::shared_ptr<DirectoryNode> nodeOf(DirectoryService& directory, const Dictionary& request) {
  const std::string* path = optionalText(request, "node");
  return directory.openLocal()->findNode(path == nullptr ? kLocalNodePath : *path);
}

// Throws EACCES when the request names an administrator who cannot authenticate.
void authenticate(DirectoryNode& node, const Dictionary& request) {
  const std::string* name = optionalText(request, protocol::kAdminUserName);
  const std::string* password = optionalText(request, protocol::kAdminPassword);
  if (name == nullptr) return;
  const Status status =
      node.authenticateName(*name, password == nullptr ? std::string() : *password, false);
  if (status != 0) throw DirectoryError(status, "the administrator cannot be authenticated");
}

std::shared_ptr<DirectoryNode> authenticatedNode(DirectoryService& directory,
                                                 const Dictionary& request) {
  auto node = nodeOf(directory, request);
  authenticate(*node, request);
  return node;
}

// Takes back what a failed creation made; its own failure must not hide the first.
void removeQuietly(DirectoryRecord& record) {
  try {
    record.removeRecord();
  } catch (const DirectoryError& error) {
    logTrouble(error);
  }
}

// The record's state for If-Match and ETag; null: there is none.
std::optional<std::string> stateOf(DirectoryRecord* record) {
  if (record == nullptr) return std::nullopt;
  return stateText(record->getAllAttributesAndValues());
}

// Throws PreconditionFailed unless the client takes the record as it is.
void requireState(DirectoryRecord* record) {
  const RequestConditions* conditions = currentRequestConditions();
  if (conditions == nullptr || !conditions->hasIfMatch()) return;
  conditions->require(stateOf(record), record != nullptr);
}

void create(DirectoryNode& node, const std::string& name, const std::string& type,
            const Dictionary& attributes) {
  const auto record = node.newRecord(name, type);
  try {
    record->setAttributesAndValues(attributes);
  } catch (const DirectoryError&) {
    removeQuietly(*record);
    throw;
  }
}

}  // namespace

Dictionary list(DirectoryService& directory, const Dictionary& request) {
  return replyOf([&]() -> Dictionary {
    const std::string& type = required(request, "type");
    return {{"records", authenticatedNode(directory, request)
                            ->findRecordNames(kRecordsAll, {kAttributesAll}, type,
                                              MatchType::caseInsensitiveExact)}};
  });
}

Dictionary get(DirectoryService& directory, const Dictionary& request) {
  return replyOf([&]() -> Dictionary {
    const std::string& type = required(request, "type");
    const std::string& name = required(request, "name");
    const auto record = authenticatedNode(directory, request)->findRecord(name, type);
    if (!record) return {};
    Dictionary attributes = record->getAllAttributesAndValues();
    if (RequestConditions* conditions = currentRequestConditions())
      conditions->setReplyState(stateText(attributes));
    return {{"record", std::move(attributes)}};
  });
}

Dictionary put(DirectoryService& directory, const Dictionary& request) {
  return replyOf([&]() -> Dictionary {
    const std::string& type = required(request, "type");
    const std::string& name = required(request, "name");
    const Dictionary attributes = attributesOf(request);
    const std::vector<std::string> removals = removalsOf(request);
    const auto node = authenticatedNode(directory, request);
    const auto record = node->findRecord(name, type);
    requireState(record.get());
    if (!record) {
      create(*node, name, type, attributes);
      return {};
    }
    record->setAttributesAndValues(attributes);
    for (const std::string& attribute : removals) record->removeAttribute(attribute);
    return {};
  });
}

Dictionary remove(DirectoryService& directory, const Dictionary& request) {
  return replyOf([&]() -> Dictionary {
    const std::string& type = required(request, "type");
    const std::string& name = required(request, "name");
    const auto record = authenticatedNode(directory, request)->findRecord(name, type);
    requireState(record.get());
    if (record) record->removeRecord();
    return {};
  });
}

Dictionary setPassword(DirectoryService& directory, const Dictionary& request) {
  return replyOf([&]() -> Dictionary {
    const std::string& name = required(request, "name");
    const std::string& password = required(request, "password");
    const auto node = authenticatedNode(directory, request);
    const auto local = std::dynamic_pointer_cast<LocalDirectoryNode>(node);
    if (!local) throw DirectoryError(EACCES, node->path() + " keeps no passwords here");
    local->setPassword(name, password);
    return {};
  });
}

}  // namespace paddock::records
