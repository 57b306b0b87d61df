#include "synchronize-shares/share_selection.h"

#include <string_view>
#include <unordered_map>

#include "platform/directory_values.h"
#include "samba/samba_text.h"
#include "store/directory_access.h"

namespace paddock::synchronizer {

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

namespace {

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

// A share must not be served as if it had none of the restrictions that cannot be read.
std::string optionsFault(const samba::ReadOptions& read) {
  return read.fault.empty() ? samba::faultOfOptions(read.options) : read.fault;
}

std::string faultOf(const SharePoint& sharePoint) {
  if (const std::string_view fault = samba::faultOfShareName(sharePoint.nameOverSMB);
      !fault.empty())
    return "its name over SMB, " + quoted(sharePoint.nameOverSMB) + ", " + std::string(fault);
  const std::string path = "its path, " + quoted(sharePoint.path) + ", ";
  if (!sharePoint.path.starts_with('/')) return path + "is not absolute";
  if (const std::string_view fault = samba::faultOfValue(sharePoint.path); !fault.empty())
    return path + std::string(fault);
  if (const std::string fault = optionsFault(sharePoint.smb); !fault.empty())
    return "its options over SMB: " + fault;
  return {};
}

// One value that Samba does not take keeps it from reading the whole configuration.
std::string checked(const SharePoint& sharePoint, const OptionsCheck& check) {
  if (!check || sharePoint.smb.options.parameters.empty()) return {};
  const std::string fault = check(samba::sectionLines(sharePoint.smb.options));
  return fault.empty() ? fault : "Samba does not take its options: " + fault;
}

}  // namespace

ShareSelection selectShares(const std::vector<SharePoint>& sharePoints, const OptionsCheck& check) {
  ShareSelection selection;
  std::unordered_map<std::string, const SharePoint*> names;
  const auto leaveOut = [&selection](const SharePoint& sharePoint, const std::string& why) {
    selection.leftOut.push_back("share point " + quoted(sharePoint.recordName) +
                                " is left out of SMB: " + why);
  };
  for (const SharePoint& sharePoint : sharePoints) {
    if (const std::string fault = faultOf(sharePoint); !fault.empty()) {
      leaveOut(sharePoint, fault);
      continue;
    }
    if (const std::string fault = checked(sharePoint, check); !fault.empty()) {
      leaveOut(sharePoint, fault);
      continue;
    }
    const auto [user, isNew] =
        names.emplace(samba::shareNameKey(sharePoint.nameOverSMB), &sharePoint);
    if (isNew) {
      selection.published.push_back(&sharePoint);
    } else {
      leaveOut(sharePoint, "its name over SMB, " + quoted(sharePoint.nameOverSMB) +
                               ", is that of share point " + quoted(user->second->recordName));
    }
  }
  return selection;
}

}  // namespace paddock::synchronizer
