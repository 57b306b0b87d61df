#include "paddock_services/share_point_names.h"

#include "platform/directory_values.h"
#include "platform/linux/process/case_fold.h"
#include "store/directory_access.h"

namespace paddock {

namespace {

bool isSet(const Dictionary& attributes, const char* attribute) {
  return readBoolean(firstText(attributes, attribute)).value_or(false);
}

}  // namespace

bool isUnfinished(const SharePointNames& share) { return !share.path.starts_with('/'); }

std::vector<SharePointNames> readSharePointNames(DirectoryService& directory) {
  const Array records = directory.openLocal()->localNode()->findRecordNames(
      kRecordsAll,
      {schema::kRecordName, schema::kDirectoryPath, schema::kVspName, schema::kSmbName,
       schema::kFtpName, schema::kVspShared, schema::kBackstowBackup},
      schema::kSharePoints, MatchType::caseInsensitiveExact);
  std::vector<SharePointNames> all;
  all.reserve(records.size());
  for (const Value& record : records) {
    const Dictionary& attributes = *record.dictionary();
    all.push_back({firstText(attributes, schema::kRecordName),
                   firstText(attributes, schema::kDirectoryPath),
                   firstText(attributes, schema::kVspName), firstText(attributes, schema::kSmbName),
                   firstText(attributes, schema::kFtpName), isSet(attributes, schema::kVspShared),
                   isSet(attributes, schema::kBackstowBackup)});
  }
  return all;
}

const SharePointNames* sharePointAt(const std::vector<SharePointNames>& all,
                                    const std::string& path) {
  const std::string key = caseFold(path);
  const SharePointNames* found = nullptr;
  for (const SharePointNames& one : all) {
    if (one.path == path) return &one;
    if (found == nullptr && caseFold(one.path) == key) found = &one;
  }
  return found;
}

}  // namespace paddock
