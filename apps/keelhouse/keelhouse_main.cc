#include <iostream>

#include "base/installed_root.h"
#include "base/trusted_path.h"
#include "keelhouse/keelhouse_command_line.h"

int main(int count, char** arguments) {
  paddock::acceptOpenProgram(paddock::runningExecutable());
  return paddock::keelhouse::runKeelhouse({arguments + 1, arguments + count}, std::cout, std::cerr);
}
