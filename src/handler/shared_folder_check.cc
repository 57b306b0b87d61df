#include "handler/shared_folder_check.h"

#include <optional>

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

// The name of the share point that has exactly this path; nullopt when none has, or when the lookup
// fails.
std::optional<std::string> shareNameAt(const std::string& path) {
  try {
    DirectoryRecordPtr record;
    const Status status =
        get_local_ds_record(schema::kDirectoryPath, path, schema::kSharePoints, record);
    if (status != kSuccess || record == nullptr) return std::nullopt;
    // Paths are found without letter case.
    if (record->getAttributeFirstValue(schema::kDirectoryPath) != path) return std::nullopt;
    return record->getAttributeFirstValue(schema::kRecordName);
  } catch (const DirectoryError&) {
    return std::nullopt;
  }
}

}  // namespace

bool is_folder_as_shared(SharedFolders* folders, const std::string& path) {
  if (folders == nullptr) return true;
  const auto name = shareNameAt(path);
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
    if (shareNameAt(sharePoint.identifier())) known_.insert(sharePoint.identifier());
  }
}

void SharedFolderNotes::take(const std::vector<SharePointRecord>& sharePoints) const {
  if (folders_ == nullptr) return;
  // As they are written: what is removed goes first.
  for (const SharePointRecord& sharePoint : sharePoints) {
    if (sharePoint.isDeleted()) (void)folders_->forget(sharePoint.identifier());
  }
  for (const SharePointRecord& sharePoint : sharePoints) {
    if (!sharePoint.isDeleted()) takeOne(sharePoint.identifier());
  }
}

void SharedFolderNotes::takeOne(const std::string& path) const {
  const auto name = shareNameAt(path);
  if (!name) return;
  // What cannot be remembered is logged there, and is no reason not to share.
  if (!known_.contains(path) || folders_->compare(path, *name) == SharedFolder::unknown) {
    (void)folders_->remember(path, *name);
  }
}

}  // namespace paddock
