// Every change to share points that a request makes.
#pragma once

#include <string>
#include <vector>

#include "base/status.h"
#include "base/value.h"
#include "paddock/plugin_request_handler.h"
#include "platform/net_service.h"
#include "store/share_point_record.h"

namespace paddock {

// Removal of one share point.

// Removes the share point of the path `identifier`: its re-share's mount record, its automount
// record (with the request's `credentials` for its node), its item in the shared-file list, its
// directory record and its NFS export (the exports file is written by the caller). Search indexing
// of exactly that path is switched off and its backup marker removed, shared or not; finally the
// services that publish share points are notified. Reports nothing; propagates directory
// exceptions.
void delete_sharepoint(const std::string& identifier, const Array& credentials);

// Applies the list: first every deletion (`isDeleted`), in order, then every other element, in
// order, then writes the exports file, renews the advertisement owned by `handler` and notifies the
// services that publish share points. Elements are changed: names of new share points are made
// unique, mount points filled in.
//
// Returns the first status that is not 0 among the written share points; deletions contribute
// none. An exception that no rule of a single share point catches ends the call: it is logged and
// the status gathered so far is returned. Nothing is thrown.
//
// `credentials` are those of the request, per directory node (see
// `get_ds_credentials_for_node_path`). Callers hold the settings lock.
Status write_sharepoints(std::vector<SharePointRecord>& sharePoints, Context& context,
                         const Array& credentials, NetServiceOwner& handler);

}  // namespace paddock
