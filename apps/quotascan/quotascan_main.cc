#include <unistd.h>

#include <iostream>

#include "quotascan/quotascan.h"

int main(int count, char** arguments) {
  return paddock::quotascan::runQuotascan({arguments, arguments + count}, std::cout, std::cerr,
                                          ::isatty(STDERR_FILENO) == 1);
}
