// The directory services that the contract suites run on.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "platform/directory.h"
#include "platform/directory_schema.h"
#include "platform/linux/case_fold.h"
#include "platform/linux/linux_directory.h"
#include "platform/testing/in_memory_directory.h"
#include "support/temporary_folder.h"

namespace paddock::contract {

inline constexpr const char* kAdmins = "paddock-contract-admins";
inline constexpr const char* kShares = "dsRecTypeStandard:SharePoints";
inline constexpr const char* kMounts = "dsRecTypeStandard:Mounts";

// A service whose node "/Local" is empty.
class DirectorySubject {
 public:
  virtual ~DirectorySubject() = default;
  virtual DirectoryService& service() = 0;
  virtual void setPassword(const std::string& user, const std::string& password) = 0;
};

class InMemorySubject final : public DirectorySubject {
 public:
  DirectoryService& service() override { return directory_; }
  void setPassword(const std::string& user, const std::string& password) override {
    directory_.setPassword("/Local", user, password);
  }

 private:
  InMemoryDirectory directory_{caseFold, kAdmins};
};

class LinuxSubject final : public DirectorySubject {
 public:
  DirectoryService& service() override { return directory_; }
  void setPassword(const std::string& user, const std::string& password) override {
    directory_.openLocalNode()->setPassword(user, password);
  }

 private:
  TestFolder folder_;
  LinuxDirectoryService directory_{{.databasePath = folder_.path("directory.sqlite"),
                                    .adminGroup = kAdmins,
                                    .pam = std::nullopt}};
};

// Runs on every subject. `makeSubject` is the parameter.
struct SubjectKind {
  const char* name;
  std::unique_ptr<DirectorySubject> (*make)();
};

inline const SubjectKind kSubjectKinds[] = {
    {"InMemory", [] { return std::unique_ptr<DirectorySubject>(new InMemorySubject); }},
    {"Linux", [] { return std::unique_ptr<DirectorySubject>(new LinuxSubject); }},
};

inline std::string subjectName(const ::testing::TestParamInfo<SubjectKind>& info) {
  return info.param.name;
}

class DirectoryTest : public ::testing::TestWithParam<SubjectKind> {
 protected:
  DirectoryService& service() { return subject_->service(); }
  DirectorySubject& subject() { return *subject_; }
  std::shared_ptr<DirectoryNode> local() { return service().openLocal()->localNode(); }

  // The names (first values of RecordName) of the answers, in their order.
  static std::vector<std::string> namesOf(const Array& answers) {
    std::vector<std::string> names;
    for (const Value& answer : answers)
      names.push_back(*answer.dictionary()->array(schema::kRecordName)->front().string());
    return names;
  }
  static std::vector<std::string> namesWith(DirectoryNode& node, const std::string& attribute,
                                            const std::string& value,
                                            const std::vector<std::string>& types = {kShares}) {
    return namesOf(
        node.findRecordsOfTypes(types, attribute, value, MatchType::caseInsensitiveExact));
  }
  static std::vector<std::string> allNames(DirectoryNode& node, const std::string& type = kShares) {
    return namesOf(
        node.findRecordNames(kRecordsAll, {kAttributesAll}, type, MatchType::caseInsensitiveExact));
  }

 private:
  std::unique_ptr<DirectorySubject> subject_ = GetParam().make();
};

// The status of the DirectoryError that `work` throws; 0 when it throws nothing.
template <typename Work>
Status raised(Work&& work) {
  try {
    work();
  } catch (const DirectoryError& error) {
    return error.status().value_or(-1);
  }
  return 0;
}

}  // namespace paddock::contract
