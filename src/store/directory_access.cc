#include "store/directory_access.h"

#include <exception>

#include "platform/directory.h"
#include "platform/logger.h"
#include "platform/services.h"

namespace paddock {

std::string describe_current_exception() {
  try {
    throw;
  } catch (const DirectoryError& error) {
    if (const auto status = error.status()) return std::to_string(*status);
    return error.what();
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "an unknown exception";
  }
}

std::string reason_of_current_exception() {
  try {
    throw;
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "an unknown exception";
  }
}

namespace {

// The status of the error that is being handled, by the rule for lookups.
Status statusOfLookupError(std::string* reason) {
  if (reason != nullptr) *reason = reason_of_current_exception();
  try {
    throw;
  } catch (const DirectoryError& error) {
    return error.status().value_or(kSuccess);
  } catch (...) {
    return kSuccess;
  }
}

// Of the error that is being handled.
void logRecordError(const std::string& name, const std::string& recordType, const char* what) {
  services().logger->log(kLogError, "paddock_sharing: The record " + name + " of type " +
                                        recordType + " was not " + what + ": " +
                                        reason_of_current_exception());
}

// Calls `work` on the local node; a node that cannot be opened is a failed lookup.
template <typename Work>
Status onLocalNode(Work work, std::string* reason = nullptr) {
  std::shared_ptr<DirectoryNode> node;
  try {
    node = get_local_node();
  } catch (...) {
    return statusOfLookupError(reason);
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
                     const std::string& recordType, DirectoryRecordPtr& record, DirectoryNode& node,
                     std::string* reason) {
  record = nullptr;
  try {
    record = findLastMatch(attribute, value, recordType, node);
  } catch (...) {
    return statusOfLookupError(reason);
  }
  return kSuccess;
}

Status get_local_ds_record(const std::string& attribute, const std::string& value,
                           const std::string& recordType, DirectoryRecordPtr& record,
                           std::string* reason) {
  record = nullptr;
  return onLocalNode(
      [&](DirectoryNode& node) {
        return get_ds_record(attribute, value, recordType, record, node, reason);
      },
      reason);
}

Status get_ds_record_by_name(const std::string& name, const std::string& recordType, bool create,
                             DirectoryRecordPtr& record, DirectoryNode& node, std::string* reason) {
  const Status status = get_ds_record(schema::kRecordName, name, recordType, record, node, reason);
  if (status != kSuccess || record != nullptr || !create) return status;
  try {
    record = node.newRecord(name, recordType);
  } catch (...) {
    logRecordError(name, recordType, "created");
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
                                DirectoryNode& node, std::string* reason) {
  DirectoryRecordPtr record;
  const Status status = get_ds_record_by_name(name, recordType, false, record, node, reason);
  if (status != kSuccess || record == nullptr) return status;
  try {
    record->removeRecord();
  } catch (...) {
    if (reason == nullptr) logRecordError(name, recordType, "removed");
    if (reason != nullptr) *reason = reason_of_current_exception();
    return kRecordRemovalFailed;
  }
  return kSuccess;
}

Status delete_local_ds_record_by_name(const std::string& name, const std::string& recordType) {
  return onLocalNode(
      [&](DirectoryNode& node) { return delete_ds_record_by_name(name, recordType, node); });
}

}  // namespace paddock
