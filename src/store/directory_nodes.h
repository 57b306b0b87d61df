// Directory nodes: which can be written, and who may write to them.
#pragma once

#include <optional>
#include <string>

#include "base/status.h"
#include "base/value.h"

namespace paddock {

// The first dictionary of `credentials` whose "nodePath" is exactly `nodePath`; null when there
// is none. It points into `credentials`.
const Dictionary* get_ds_credentials_for_node_path(const Array& credentials,
                                                   const std::string& nodePath);

// Whether the administrator can authenticate on the node and create a record there (one named
// "verifyAuthTempName" is made and removed at once). Returns 0 with `canAuth` true, otherwise
// `canAuth` false with the authentication's status, the service's status, or -1 when its error
// carries none. Throws DirectoryError when the node cannot be opened or asked.
Status auth_ds_node(const std::string& nodePath, const std::string& adminName,
                    const std::string& password, bool& canAuth);

// The paths of the search node's nodes that are "ReadWrite", in search order. Nodes that cannot
// be read are left out. Always 0.
Status get_ds_nodes(Array& nodePaths);

}  // namespace paddock
