// The keys of requests and replies, for both sides of the socket. Text that is compared byte for
// byte; what a key's value is, and when it is there, docs/api.md says operation by operation. Words
// that are no name by themselves ("path", "acl", "owner") stand where they are used.
#pragma once

namespace paddock::protocol {

// Of every request and reply of the sharing module.
inline constexpr const char* kOptionalArguments = "optionalArguments";
inline constexpr const char* kConsoleLog = "consoleLog";
inline constexpr const char* kSampleLog = "sampleLog";
inline constexpr const char* kReadWriteSettingsVersion = "readWriteSettingsVersion";
inline constexpr const char* kReadStatus = "readStatus";
inline constexpr const char* kReadError = "readError";
inline constexpr const char* kWriteStatus = "writeStatus";
inline constexpr const char* kWriteError = "writeError";
inline constexpr const char* kDsCredentials = "dsCredentials";
inline constexpr const char* kDsNodeName = "dsNodeName";
inline constexpr const char* kDsAdminName = "dsAdminName";
inline constexpr const char* kDsAdminPW = "dsAdminPW";
inline constexpr const char* kDsNodeArray = "dsNodeArray";
inline constexpr const char* kCanAuth = "canAuth";
inline constexpr const char* kAdminUserName = "adminUserName";
inline constexpr const char* kAdminPassword = "adminPassword";

// What a request for settings may name.
inline constexpr const char* kSharePointList = "sharePointList";
inline constexpr const char* kSharePointRecord = "sharePointRecord";
inline constexpr const char* kIsShared = "isShared";
inline constexpr const char* kFileAccessPrivs = "fileAccessPrivs";
inline constexpr const char* kVolumeQuotas = "volumeQuotas";
inline constexpr const char* kIsIndexingEnabled = "isIndexingEnabled";

// A share point.
inline constexpr const char* kNodePath = "nodePath";
inline constexpr const char* kNameOverVSP = "nameOverVSP";
inline constexpr const char* kNameOverSMB = "nameOverSMB";
inline constexpr const char* kNameOverFTP = "nameOverFTP";
inline constexpr const char* kIsSharedOverVSP = "isSharedOverVSP";
inline constexpr const char* kIsAutomounted = "isAutomounted";
inline constexpr const char* kAutomountDSPath = "automountDSPath";
inline constexpr const char* kAutomountMountPath = "automountMountPath";
inline constexpr const char* kAutomountFileSystemType = "automountFileSystemType";
inline constexpr const char* kIsBackstowBackup = "isBackstowBackup";
inline constexpr const char* kBackstowBackupUUID = "backstowBackupUUID";
inline constexpr const char* kMountedOnPath = "mountedOnPath";
inline constexpr const char* kNfsExportRecord = "nfsExportRecord";
inline constexpr const char* kIsDeleted = "isDeleted";
inline constexpr const char* kNfsExportPath = "nfsExportPath";
inline constexpr const char* kNfsResharePath = "nfsResharePath";
inline constexpr const char* kNfsServerHostName = "nfsServerHostName";
inline constexpr const char* kNfsWriteMountRec = "nfsWriteMountRec";

// Privileges of a folder, and an entry of its list.
inline constexpr const char* kAclErr = "aclErr";
inline constexpr const char* kPosixErr = "posixErr";
inline constexpr const char* kFileType = "fileType";
inline constexpr const char* kDisplayName = "displayName";
inline constexpr const char* kAllowPermission = "allowPermission";
inline constexpr const char* kIsUser = "isUser";
inline constexpr const char* kUniqueID = "uniqueID";
inline constexpr const char* kGroupID = "groupID";

// A propagation.
inline constexpr const char* kCopyPrivsActive = "copyPrivsActive";
inline constexpr const char* kCopyPrivsPid = "copyPrivsPid";
inline constexpr const char* kCopyPrivsStatusFile = "copyPrivsStatusFile";
inline constexpr const char* kPropACL = "propACL";
inline constexpr const char* kPropGroupName = "propGroupName";
inline constexpr const char* kPropGroupPerm = "propGroupPerm";
inline constexpr const char* kPropOwnerName = "propOwnerName";
inline constexpr const char* kPropOwnerPerm = "propOwnerPerm";
inline constexpr const char* kPropWorldPerm = "propWorldPerm";

// Quotas of a volume.
inline constexpr const char* kIsEnabled = "isEnabled";
inline constexpr const char* kQuotaError = "quotaError";

}  // namespace paddock::protocol
