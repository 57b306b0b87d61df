#include <iostream>

#include "keelhouse/keelhouse_command_line.h"

int main(int count, char** arguments) {
  return paddock::keelhouse::runKeelhouse({arguments + 1, arguments + count}, std::cout, std::cerr);
}
