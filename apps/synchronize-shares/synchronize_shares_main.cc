#include <sys/stat.h>

#include <iostream>

#include "base/installed_root.h"
#include "base/program_start.h"
#include "base/trusted_path.h"
#include "synchronize-shares/synchronize_shares.h"

int main(int count, char** arguments) {
  paddock::ignoreLdapFiles();
  paddock::acceptOpenProgram(paddock::runningExecutable());
  // A folder created for the file is not writable by other users.
  ::umask(022);
  paddock::synchronizer::SystemLog log;
  const std::string root = paddock::rootOfInstalled(paddock::runningExecutable(),
                                                    "/usr/libexec/samba/synchronize-shares");
  return paddock::synchronizer::runSynchronizeShares({arguments, arguments + count}, root, log,
                                                     std::cout, std::cerr);
}
