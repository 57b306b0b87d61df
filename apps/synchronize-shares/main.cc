#include <sys/stat.h>

#include <iostream>

#include "base/installed_root.h"
#include "base/program_start.h"
#include "synchronize-shares/synchronize_shares.h"
#include "synchronize-shares/system_log.h"

int main(int count, char** arguments) {
  paddock::ignoreLdapFiles();
  // A folder that is made for the file is nobody else's to write to.
  ::umask(022);
  paddock::synchronizer::SystemLog log;
  const std::string root = paddock::rootOfInstalled(paddock::runningExecutable(),
                                                    "/usr/libexec/samba/synchronize-shares");
  return paddock::synchronizer::runSynchronizeShares({arguments, arguments + count}, root, log,
                                                     std::cout, std::cerr);
}
