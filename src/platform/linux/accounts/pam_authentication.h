// Authentication of the host's users through PAM, which answers with the password only.
#pragma once

#include <string>

#include "base/status.h"

namespace paddock {

struct PamOptions {
  std::string service = "paddock";
  // Where the service's configuration stands; empty: where the system keeps it.
  std::string configurationFolder;
};

// 0, or EACCES for a user who may not log in with the password (an account that has expired or must
// change its password included). Throws DirectoryError when PAM cannot tell.
Status authenticateWithPam(const PamOptions& options, const std::string& user,
                           const std::string& password);

}  // namespace paddock
