// Records of the directory by attribute and by name.
//
// Results. Every function sets its out value to null first and returns a status: 0 for success,
// a record that was not found included. A DirectoryError of a lookup becomes its own "status"
// number (0 when it carries none); any other error of a lookup counts as "nothing found", status 0.
// Only `get_local_node` throws.
//
// Where `reason` is not null it gets what an error says of itself, and stays as it is without one.
// The error of a creation, and of a removal without a `reason`, is logged with the record.
//
// A session is opened per call and nothing is kept between calls. Callers hold the settings lock.
#pragma once

#include <memory>
#include <string>

#include "base/status.h"
#include "platform/directory.h"

namespace paddock {

using DirectoryRecordPtr = std::unique_ptr<DirectoryRecord>;

// The node on which this server's own records live. Throws DirectoryError.
std::shared_ptr<DirectoryNode> get_local_node();

// The record of `recordType` on `node` that has `value` in `attribute`, compared
// case-insensitively; the last one of the node's answer when there are several.
Status get_ds_record(const std::string& attribute, const std::string& value,
                     const std::string& recordType, DirectoryRecordPtr& record, DirectoryNode& node,
                     std::string* reason = nullptr);
Status get_local_ds_record(const std::string& attribute, const std::string& value,
                           const std::string& recordType, DirectoryRecordPtr& record,
                           std::string* reason = nullptr);

// The record of that name, created when there is none and `create` is true. A creation that
// fails gives -2.
Status get_ds_record_by_name(const std::string& name, const std::string& recordType, bool create,
                             DirectoryRecordPtr& record, DirectoryNode& node,
                             std::string* reason = nullptr);
Status get_local_ds_record_by_name(const std::string& name, const std::string& recordType,
                                   bool create, DirectoryRecordPtr& record);

// Removes the record of that name; 0 when there is none, -3 when the removal fails.
Status delete_ds_record_by_name(const std::string& name, const std::string& recordType,
                                DirectoryNode& node, std::string* reason = nullptr);
Status delete_local_ds_record_by_name(const std::string& name, const std::string& recordType);

}  // namespace paddock
