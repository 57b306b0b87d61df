// The directory node "/System": the host's users and groups, read-only, through the name
// service switch.
//
// Users have RecordName, RealName (the comment up to its first comma, absent when empty),
// UniqueID, PrimaryGroupID, NFSHomeDirectory and UserShell; groups have RecordName, PrimaryGroupID
// and GroupMembership; both have RecordType and the GeneratedUID computed from the id. What is
// not UTF-8 text is left out.
//
// Names and ids are looked up before anything is enumerated, so that users of a switch without
// enumeration are found: an entry whose name is exactly the one asked for, or the first with the
// id, is then the complete answer. Names in other letter case and all other attributes match among
// the enumerated entries.
#pragma once

#include <memory>
#include <optional>

#include "platform/directory.h"
#include "platform/linux/accounts/pam_authentication.h"
#include "platform/search_node.h"

namespace paddock {

// Users authenticate through PAM; without `pam`, authenticating raises ENOTSUP. Each password check
// goes through the observer.
std::shared_ptr<DirectoryNode> makeSystemNode(std::optional<PamOptions> pam,
                                              std::shared_ptr<NodeObserver> observer = nullptr);

}  // namespace paddock
