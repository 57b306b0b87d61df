// The record types and attributes of the directory that share points use.
#pragma once

#include "platform/directory_schema.h"

namespace paddock::schema {

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
