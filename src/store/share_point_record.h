// One share point.
//
// Properties are set or not set; a property that was never set is absent from both forms, so
// that a partial dictionary changes only what it names. The dictionary form (requests, replies)
// has one entry per property under the property's name; the directory form has attribute names
// and texts, booleans as "1" and "0". Each form is the exact inverse of its constructor, property
// by property, the directory form for what the directory keeps (see docs/formats/share-point.md).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "base/value.h"

namespace paddock {

class NFSExportRecord;

class SharePointRecord {
 public:
  // An empty record.
  static SharePointRecord record();
  // From a directory record's attributes (name -> array of values); the first value counts. A
  // boolean is read from 1/0, yes/no, true/false in any letter case; anything else is not set.
  static SharePointRecord recordWithDSDictionary(const Dictionary& attributes);
  // From the dictionary form. A value of the wrong type is not set. An "nfsExportRecord" without
  // a path gets the share point's.
  static SharePointRecord recordWithDictionary(const Dictionary& settings);

  Dictionary dictionary() const;
  Dictionary dsDictionary() const;
  // Sets what `settings`, a dictionary form, names.
  void addAttributesFromDictionary(const Dictionary& settings);

  // "share point NAME for path PATH", for logs; what is not set is left out.
  std::string description() const;

  // The share point's identity: its path, empty when that is not set.
  std::string identifier() const { return path_.value_or(std::string()); }
  const std::optional<std::string>& path() const { return path_; }
  const std::optional<std::string>& name() const { return name_; }
  const std::optional<std::string>& nameOverVSP() const { return nameOverVSP_; }
  const std::optional<std::string>& nameOverSMB() const { return nameOverSMB_; }
  const std::optional<std::string>& nameOverFTP() const { return nameOverFTP_; }
  const std::optional<std::string>& mountedOnPath() const { return mountedOnPath_; }
  const std::optional<std::string>& backstowBackupUUID() const { return backstowBackupUUID_; }
  const std::optional<std::string>& automountDSPath() const { return automountDSPath_; }
  const std::optional<std::string>& automountMountPath() const { return automountMountPath_; }
  std::int64_t automountFileSystemType() const { return automountFileSystemType_.value_or(0); }
  // Flags that are not set read as false.
  bool isSharedOverVSP() const { return isSharedOverVSP_.value_or(false); }
  bool isBackstowBackup() const { return isBackstowBackup_.value_or(false); }
  bool isAutomounted() const { return isAutomounted_.value_or(false); }
  bool isIndexingEnabled() const { return isIndexingEnabled_.value_or(false); }
  bool isDeleted() const { return isDeleted_.value_or(false); }
  // Null when the folder is not exported.
  const std::shared_ptr<NFSExportRecord>& nfsExportRecord() const { return nfsExportRecord_; }

  void setPath(std::string path) { path_ = std::move(path); }
  void setName(std::string name) { name_ = std::move(name); }
  void setNameOverVSP(std::string name) { nameOverVSP_ = std::move(name); }
  void setNameOverSMB(std::string name) { nameOverSMB_ = std::move(name); }
  void setNameOverFTP(std::string name) { nameOverFTP_ = std::move(name); }
  void setIndexingEnabled(bool enabled) { isIndexingEnabled_ = enabled; }
  void setMountedOnPath(std::string path) { mountedOnPath_ = std::move(path); }
  void setNFSExportRecord(std::shared_ptr<NFSExportRecord> exportRecord) {
    nfsExportRecord_ = std::move(exportRecord);
  }
  void setDeleted(bool deleted) { isDeleted_ = deleted; }

 private:
  using Text = std::optional<std::string>;
  using Flag = std::optional<bool>;

  template <typename Member>
  struct Property {
    const char* key;
    const char* attribute;  // null: not kept in the directory
    std::optional<Member> SharePointRecord::*member;
  };
  struct Properties;

  Text path_;
  Text name_;
  Text nameOverVSP_;
  Text nameOverSMB_;
  Text nameOverFTP_;
  Text backstowBackupUUID_;
  Text automountMountPath_;
  Text automountDSPath_;
  Text mountedOnPath_;
  std::optional<std::int64_t> automountFileSystemType_;
  Flag isSharedOverVSP_;
  Flag isBackstowBackup_;
  Flag isAutomounted_;
  Flag isIndexingEnabled_;
  Flag isDeleted_;
  std::shared_ptr<NFSExportRecord> nfsExportRecord_;
};

}  // namespace paddock
