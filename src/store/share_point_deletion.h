// Removal of one share point.
#pragma once

#include <string>

#include "base/value.h"

namespace paddock {

// Removes the share point of the path `identifier`: its re-share's mount record, its automount
// record (with the request's `credentials` for its node), its item in the shared-file list, its
// directory record and its NFS export (the exports file is written by the caller). Search indexing
// of exactly that path is switched off and its backup marker removed, shared or not; in the end the
// services that publish share points are told. Reports nothing; throws what the directory throws.
void delete_sharepoint(const std::string& identifier, const Array& credentials);

}  // namespace paddock
