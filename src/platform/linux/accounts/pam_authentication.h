// Authentication of the host's users through PAM; the conversation supplies only the password.
#pragma once

#include <string>

#include "base/status.h"

namespace paddock {

struct PamOptions {
  std::string service = "paddock";
  // Folder of the service's configuration; empty: the system's.
  std::string configurationFolder;
};

// 0, or EACCES for a user who may not log in with the password (an account that has expired or must
// change its password included). Throws DirectoryError when PAM cannot decide.
Status authenticateWithPam(const PamOptions& options, const std::string& user,
                           const std::string& password);

}  // namespace paddock
