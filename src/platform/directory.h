// The directory service: sessions, nodes, records.
//
// Shapes. A search answers an Array of Dictionaries, one per record, attribute name -> Array of
// strings. Attributes are multi-valued and ordered. Every record has
// "dsAttrTypeStandard:RecordName" (its first value is the record's name; further values are further
// names) and answers have "dsAttrTypeStandard:RecordType" when all attributes are requested. Record
// names are unique per type on one node, compared case-insensitively.
//
// Text is UTF-8 without NUL. Matching is "case-insensitive exact": two values match when their
// full Unicode case foldings are equal byte for byte; nothing is normalised, trimmed or
// squeezed. Answers come in the order in which the records were created.
//
// Errors. Every operation may throw DirectoryError. Its "status" is an errno value: ENOENT (no
// such node; a record that is gone), EACCES (not allowed, read-only), EINVAL (an empty name, a
// value that is no text, an attribute set to nothing valid), EEXIST (a name that another record
// of the type has), EBUSY / ETIMEDOUT (the store is locked), EIO (the store is damaged), ENOSPC.
// A change that throws changed nothing.
//
// Threads. A session and the objects that it returns belong to one thread. Sessions of one service
// may be used concurrently. Nodes and records outlive the session that returned them.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/status.h"
#include "base/value.h"

namespace paddock {

class DirectoryError : public std::runtime_error, public NumberedError {
 public:
  // The text becomes the description, `status` the "status" of the information dictionary.
  DirectoryError(Status status, const std::string& description);
  // An error without a "status".
  explicit DirectoryError(const std::string& description);

  const Dictionary& userInfo() const { return userInfo_; }
  // The integer under "status", when there is one.
  std::optional<Status> status() const;
  std::optional<Status> number() const override { return status(); }

 private:
  Dictionary userInfo_;
};

// Match types by the service's own codes.
enum class MatchType : std::uint32_t { caseInsensitiveExact = 0x2101 };

inline constexpr const char* kRecordsAll = "dsRecordsAll";
inline constexpr const char* kAttributesAll = "dsAttributesAll";

class DirectoryRecord {
 public:
  virtual ~DirectoryRecord() = default;

  // In the order in which they were first set.
  virtual std::vector<std::string> getAllAttributes() const = 0;
  virtual Dictionary getAllAttributesAndValues() const = 0;
  // The values, empty when the record does not have the attribute.
  virtual Array getAttribute(const std::string& attribute) const = 0;
  virtual std::optional<std::string> getAttributeFirstValue(const std::string& attribute) const = 0;

  // Replaces the attribute's values. Setting "dsAttrTypeStandard:RecordName" renames.
  virtual void setAttribute(const std::string& attribute, const std::string& value) = 0;
  virtual void setAttribute(const std::string& attribute, const Array& values) = 0;
  // Removing an attribute that the record does not have is no error. A record cannot be without
  // its first name and its type: removing "dsAttrTypeStandard:RecordName" removes its further
  // names only, removing "dsAttrTypeStandard:RecordType" nothing.
  virtual void removeAttribute(const std::string& attribute) = 0;
  virtual void removeRecord() = 0;

  // Replaces every attribute that `attributes` names (value: a string or an array of strings),
  // all of them or none; attributes that it does not name are left as they are.
  virtual void setAttributesAndValues(const Dictionary& attributes) = 0;
  // Calls `removeAttribute` for every name in `getAllAttributes`, in that order.
  void removeAllAttributesAndValues();
};

class DirectoryNode {
 public:
  virtual ~DirectoryNode() = default;

  // "/Local" and the like.
  virtual const std::string& path() const = 0;

  // All records of the given types that have the value among the attribute's values.
  virtual Array findRecordsOfTypes(const std::vector<std::string>& types,
                                   const std::string& attribute, const std::string& value,
                                   MatchType matchType) = 0;
  // Records by any of their names (kRecordsAll: all) with the attributes that were asked for
  // (kAttributesAll: all).
  virtual Array findRecordNames(const std::string& name, const std::vector<std::string>& attributes,
                                const std::string& type, MatchType matchType) = 0;
  // Null when there is none.
  virtual std::unique_ptr<DirectoryRecord> findRecord(const std::string& name,
                                                      const std::string& type) = 0;
  virtual std::unique_ptr<DirectoryRecord> newRecord(const std::string& name,
                                                     const std::string& type) = 0;

  // 0, or EACCES for an unknown name, a wrong or an empty password (returned, not thrown). With
  // authOnly false the node keeps the authentication: later changes through this object, and
  // through records that it returns, are made as that user. Throws when the node cannot answer.
  virtual Status authenticateName(const std::string& name, const std::string& password,
                                  bool authOnly) = 0;

  // Attributes of the node itself: "dsAttrTypeStandard:ReadOnlyNode" ("ReadWrite" or
  // "ReadOnly") on every node, "dsAttrTypeStandard:SearchPath" on the search node (the node
  // paths in search order). Empty when the node does not have it.
  virtual Array getAttribute(const std::string& attribute) const = 0;
  std::optional<std::string> getAttributeFirstValue(const std::string& attribute) const;
};

class DirectorySession {
 public:
  virtual ~DirectorySession() = default;
  virtual std::shared_ptr<DirectoryNode> localNode() = 0;
  virtual std::shared_ptr<DirectoryNode> searchNode() = 0;
  virtual std::shared_ptr<DirectoryNode> findNode(const std::string& path) = 0;
};

class DirectoryService {
 public:
  virtual ~DirectoryService() = default;
  // Opens a session to the local directory (`initWithLocal`).
  virtual std::unique_ptr<DirectorySession> openLocal() = 0;
};

}  // namespace paddock

namespace paddock::schema {

// The names of record types and attributes with a meaning to the directory itself.
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
