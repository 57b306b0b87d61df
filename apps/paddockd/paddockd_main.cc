#include "daemon/daemon.h"
#include "daemon/daemon_options.h"

int main(int count, char** arguments) {
  int exitStatus = 0;
  const auto options = paddock::readOptions(count, arguments, exitStatus);
  return options ? paddock::runDaemon(*options) : exitStatus;
}
