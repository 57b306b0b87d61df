// Removal of one share point.
#pragma once

#include <string>

namespace paddock {

// Removes the share point of the path `identifier`: its re-share's mount record, its item in the
// shared-file list, its directory record and its NFS export (the exports file is written by the
// caller). Reports nothing; throws what the directory throws.
void delete_sharepoint(const std::string& identifier);

}  // namespace paddock
