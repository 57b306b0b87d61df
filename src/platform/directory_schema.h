// The names of record types and attributes that the directory itself gives a meaning.
#pragma once

namespace paddock::schema {

inline constexpr const char* kUsers = "dsRecTypeStandard:Users";
inline constexpr const char* kGroups = "dsRecTypeStandard:Groups";
inline constexpr const char* kMounts = "dsRecTypeStandard:Mounts";

inline constexpr const char* kRecordName = "dsAttrTypeStandard:RecordName";
inline constexpr const char* kRecordType = "dsAttrTypeStandard:RecordType";
inline constexpr const char* kRealName = "dsAttrTypeStandard:RealName";
inline constexpr const char* kUniqueID = "dsAttrTypeStandard:UniqueID";
inline constexpr const char* kPrimaryGroupID = "dsAttrTypeStandard:PrimaryGroupID";
inline constexpr const char* kGeneratedUID = "dsAttrTypeStandard:GeneratedUID";
inline constexpr const char* kGroupMembership = "dsAttrTypeStandard:GroupMembership";
inline constexpr const char* kNestedGroups = "dsAttrTypeStandard:NestedGroups";
inline constexpr const char* kHomeDirectory = "dsAttrTypeStandard:NFSHomeDirectory";
inline constexpr const char* kUserShell = "dsAttrTypeStandard:UserShell";
inline constexpr const char* kGroupMembers = "dsAttrTypeStandard:GroupMembers";

// Attributes of mounts.
inline constexpr const char* kVfsLinkDir = "dsAttrTypeStandard:VFSLinkDir";
inline constexpr const char* kVfsType = "dsAttrTypeStandard:VFSType";
inline constexpr const char* kVfsOpts = "dsAttrTypeStandard:VFSOpts";

// Attributes of nodes.
inline constexpr const char* kReadOnlyNode = "dsAttrTypeStandard:ReadOnlyNode";
inline constexpr const char* kSearchPath = "dsAttrTypeStandard:SearchPath";
inline constexpr const char* kReadWrite = "ReadWrite";
inline constexpr const char* kReadOnly = "ReadOnly";

}  // namespace paddock::schema
