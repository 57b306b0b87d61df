#include "handler/shared_folder_check.h"

#include <optional>
#include <string>

#include "platform/directory.h"
#include "platform/file_attributes.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "store/directory_access.h"

namespace paddock {

namespace {

constexpr const char* kOther =
    "another folder is there than the one that was shared. Is its volume mounted? If the folder is "
    "the right one, share it again: keelhouse share show --json PATH > FILE, keelhouse share "
    "remove "
    "PATH, keelhouse share add PATH --from FILE";

// The name of the share point that has exactly a path; none when no share point has it.
struct ShareLookup {
  bool hasFailed = false;
  std::optional<std::string> name;
};

ShareLookup shareAt(const std::string& path) {
  try {
    DirectoryRecordPtr record;
    std::string reason;  // also of a failure without a number, whose status is 0
    const Status status =
        get_local_ds_record(schema::kDirectoryPath, path, schema::kSharePoints, record, &reason);
    if (status != kSuccess || !reason.empty()) return {true, {}};
    // Paths are found without letter case.
    if (record == nullptr || record->getAttributeFirstValue(schema::kDirectoryPath) != path)
      return {};
    return {false, record->getAttributeFirstValue(schema::kRecordName)};
  } catch (const DirectoryError&) {
    return {true, {}};
  }
}

}  // namespace

bool is_folder_as_shared(SharedFolders* folders, const std::string& path) {
  if (folders == nullptr) return true;
  const auto name = shareAt(path).name;
  if (!name || folders->compare(path, *name) != SharedFolder::other) return true;
  // A link that does not count says more of how the other folder got there.
  const auto link = services().fileAttributes->refusedLink(path);
  services().logger->log(kLogError, "paddock_sharing: The privileges of " + path +
                                        " are left alone: " + (link ? textOf(*link) : kOther));
  return false;
}

SharedFolderNotes::SharedFolderNotes(SharedFolders* folders,
                                     const std::vector<SharePointRecord>& sharePoints)
    : folders_(folders) {
  if (folders_ == nullptr) return;
  for (const SharePointRecord& sharePoint : sharePoints) {
    // One that cannot be looked up may have a record, which is not to be replaced.
    const ShareLookup share = shareAt(sharePoint.identifier());
    if (share.hasFailed || share.name) known_.insert(sharePoint.identifier());
  }
}

void SharedFolderNotes::take(const std::vector<SharePointRecord>& sharePoints) const {
  if (folders_ == nullptr) return;
  // As they are written: what is removed goes first.
  for (const SharePointRecord& sharePoint : sharePoints) {
    if (!sharePoint.isDeleted()) continue;
    // A share point that could not be removed keeps its folder.
    const ShareLookup share = shareAt(sharePoint.identifier());
    if (!share.hasFailed && !share.name) (void)folders_->forget(sharePoint.identifier());
  }
  for (const SharePointRecord& sharePoint : sharePoints) {
    if (!sharePoint.isDeleted()) takeOne(sharePoint.identifier());
  }
}

void SharedFolderNotes::takeOne(const std::string& path) const {
  const auto name = shareAt(path).name;
  if (!name) return;
  // What cannot be remembered is logged there, and is no reason not to share.
  if (!known_.contains(path) || folders_->compare(path, *name) == SharedFolder::unknown) {
    (void)folders_->remember(path, *name);
  }
}

}  // namespace paddock
