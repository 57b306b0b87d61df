#include "store/directory_access.h"

#include "platform/services.h"
#include "store/schema.h"

namespace paddock {

namespace {

// The status of the error that is being handled, by the rule for lookups.
Status statusOfLookupError() {
  try {
    throw;
  } catch (const DirectoryError& error) {
    return error.status().value_or(kSuccess);
  } catch (...) {
    return kSuccess;
  }
}

// Runs `work` on the local node; a node that cannot be opened is a lookup that failed.
template <typename Work>
Status onLocalNode(Work work) {
  std::shared_ptr<DirectoryNode> node;
  try {
    node = get_local_node();
  } catch (...) {
    return statusOfLookupError();
  }
  return work(*node);
}

DirectoryRecordPtr findLastMatch(const std::string& attribute, const std::string& value,
                                 const std::string& recordType, DirectoryNode& node) {
  const Array matches =
      node.findRecordsOfTypes({recordType}, attribute, value, MatchType::caseInsensitiveExact);
  if (matches.empty() || matches.back().dictionary() == nullptr) return nullptr;
  const Array* names = matches.back().dictionary()->array(schema::kRecordName);
  if (names == nullptr || names->empty() || names->back().string() == nullptr) return nullptr;
  return node.findRecord(*names->back().string(), recordType);
}

}  // namespace

std::shared_ptr<DirectoryNode> get_local_node() {
  return services().directory->openLocal()->localNode();
}

Status get_ds_record(const std::string& attribute, const std::string& value,
                     const std::string& recordType, DirectoryRecordPtr& record,
                     DirectoryNode& node) {
  record = nullptr;
  try {
    record = findLastMatch(attribute, value, recordType, node);
  } catch (...) {
    return statusOfLookupError();
  }
  return kSuccess;
}

Status get_local_ds_record(const std::string& attribute, const std::string& value,
                           const std::string& recordType, DirectoryRecordPtr& record) {
  record = nullptr;
  return onLocalNode([&](DirectoryNode& node) {
    return get_ds_record(attribute, value, recordType, record, node);
  });
}

Status get_ds_record_by_name(const std::string& name, const std::string& recordType, bool create,
                             DirectoryRecordPtr& record, DirectoryNode& node) {
  const Status status = get_ds_record(schema::kRecordName, name, recordType, record, node);
  if (status != kSuccess || record != nullptr || !create) return status;
  try {
    record = node.newRecord(name, recordType);
  } catch (...) {
    return kRecordCreationFailed;
  }
  return kSuccess;
}

Status get_local_ds_record_by_name(const std::string& name, const std::string& recordType,
                                   bool create, DirectoryRecordPtr& record) {
  record = nullptr;
  return onLocalNode([&](DirectoryNode& node) {
    return get_ds_record_by_name(name, recordType, create, record, node);
  });
}

Status delete_ds_record_by_name(const std::string& name, const std::string& recordType,
                                DirectoryNode& node) {
  DirectoryRecordPtr record;
  const Status status = get_ds_record_by_name(name, recordType, false, record, node);
  if (status != kSuccess || record == nullptr) return status;
  try {
    record->removeRecord();
  } catch (...) {
    return kRecordRemovalFailed;
  }
  return kSuccess;
}

Status delete_local_ds_record_by_name(const std::string& name, const std::string& recordType) {
  return onLocalNode(
      [&](DirectoryNode& node) { return delete_ds_record_by_name(name, recordType, node); });
}

}  // namespace paddock
