#include <iostream>

#include "base/installed_root.h"
#include "base/program_start.h"
#include "base/trusted_path.h"
#include "effectiveprivs/effectiveprivs.h"
#include "privileges/bundle_programs.h"

int main(int count, char** arguments) {
  paddock::ignoreLdapFiles();
  paddock::acceptOpenProgram(paddock::runningExecutable());
  const std::string root =
      paddock::rootOfInstalled(paddock::runningExecutable(), paddock::kEffectivePrivsPath);
  return paddock::effectiveprivs::runEffectiveprivs({arguments, arguments + count}, root, std::cout,
                                                    std::cerr);
}
