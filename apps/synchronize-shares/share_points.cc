#include "synchronize-shares/share_points.h"

#include "store/schema.h"

namespace paddock::synchronizer {

namespace {

std::string firstText(const Dictionary& attributes, const char* attribute) {
  const Array* values = attributes.array(attribute);
  const std::string* text =
      values != nullptr && !values->empty() ? values->front().string() : nullptr;
  return text != nullptr ? *text : std::string();
}

}  // namespace

std::vector<SharePoint> readSharePoints(const LinuxDirectoryOptions& options) {
  LinuxDirectoryService directory(options);
  const Array records = directory.openLocal()->localNode()->findRecordNames(
      kRecordsAll, {kAttributesAll}, schema::kSharePoints, MatchType::caseInsensitiveExact);
  std::vector<SharePoint> sharePoints;
  sharePoints.reserve(records.size());
  for (const Value& record : records) {
    const Dictionary& attributes = *record.dictionary();
    std::string name = firstText(attributes, schema::kSmbName);
    if (name.empty()) continue;
    sharePoints.push_back({firstText(attributes, schema::kRecordName),
                           firstText(attributes, schema::kDirectoryPath), std::move(name),
                           samba::readOptions(attributes), false});
  }
  return sharePoints;
}

}  // namespace paddock::synchronizer
