// Records of the node "/Local".
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/directory.h"
#include "platform/linux/directory/local_database.h"

namespace paddock {

// State shared by a node object and the records that it returned.
struct LocalAccess {
  explicit LocalAccess(std::shared_ptr<LocalDatabase> database_) : database(std::move(database_)) {}

  const std::shared_ptr<LocalDatabase> database;
  // Set once a user has authenticated who may not write.
  std::atomic<bool> refused = false;

  // Throws EACCES when the user may not write.
  void requireWritable() const;
};

class LocalRecord final : public DirectoryRecord {
 public:
  // A record of the database's `generation`.
  LocalRecord(std::shared_ptr<LocalAccess> access, RecordNumber number, std::uint64_t generation)
      : access_(std::move(access)), number_(number), generation_(generation) {}

  std::vector<std::string> getAllAttributes() const override;
  Dictionary getAllAttributesAndValues() const override;
  Array getAttribute(const std::string& attribute) const override;
  std::optional<std::string> getAttributeFirstValue(const std::string& attribute) const override;
  void setAttribute(const std::string& attribute, const std::string& value) override;
  void setAttribute(const std::string& attribute, const Array& values) override;
  void removeAttribute(const std::string& attribute) override;
  void removeRecord() override;
  void setAttributesAndValues(const Dictionary& attributes) override;

 private:
  std::vector<AttributeChange> read() const;
  void change(const std::vector<AttributeChange>& changes);
  // Throws ENOENT when the record belongs to a file that has been replaced as the database.
  void requireSameDirectory() const;

  std::shared_ptr<LocalAccess> access_;
  RecordNumber number_;
  std::uint64_t generation_;
};

}  // namespace paddock
