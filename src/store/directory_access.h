// Records of the directory by attribute and by name.
//
// Results. Every function sets its out value to null first and returns a status: 0 for success,
// a record that was not found included. A DirectoryError of a lookup becomes its own "status"
// number (0 when it carries none); any other error of a lookup counts as "nothing found", status 0.
// Only `get_local_node` throws.
//
// Where `reason` is not null it is set to the description of an error, and is unchanged without
// one. The error of a creation, and of a removal without a `reason`, is logged with the record.
//
// A session is opened per call and nothing is kept between calls. Callers hold the settings lock.
#pragma once

#include <memory>
#include <string>

#include "base/status.h"
#include "platform/directory.h"

namespace paddock::schema {

// The record types and attributes of the directory that share points use.
inline constexpr const char* kSharePoints = "dsRecTypeStandard:SharePoints";

inline constexpr const char* kDirectoryPath = "dsAttrTypeNative:directory_path";
inline constexpr const char* kVspName = "dsAttrTypeNative:vsp_name";
inline constexpr const char* kSmbName = "dsAttrTypeNative:smb_name";
inline constexpr const char* kFtpName = "dsAttrTypeNative:ftp_name";
inline constexpr const char* kVspShared = "dsAttrTypeNative:vsp_shared";
inline constexpr const char* kBackstowBackup = "dsAttrTypeNative:backstowBackup";
inline constexpr const char* kBackstowBackupUuid = "dsAttrTypeNative:backstowBackupUUID";
inline constexpr const char* kReshareMountName = "dsAttrTypeNative:nfs_reshare_automount_recname";
inline constexpr const char* kIsAutomounted = "dsAttrTypeNative:amt_is_automounted";
inline constexpr const char* kStaticMountPath = "dsAttrTypeNative:amt_static_mount_path";
inline constexpr const char* kAutomountDsPath = "dsAttrTypeNative:amt_ds_path";
inline constexpr const char* kAutomountFileSystem = "dsAttrTypeNative:amt_file_system";
inline constexpr const char* kAutomountRecordName = "dsAttrTypeNative:amt_rec_name";

}  // namespace paddock::schema

namespace paddock {

// What the log says of an exception.

// The exception that is being handled: its status number where it has one, otherwise its
// description. Precondition: an exception is being handled.
std::string describe_current_exception();

// Its description, also where it has a status number. The same precondition.
std::string reason_of_current_exception();

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
