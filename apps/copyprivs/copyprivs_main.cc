#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <iostream>

#include "base/installed_root.h"
#include "base/program_start.h"
#include "base/trusted_path.h"
#include "copyprivs/copyprivs.h"

namespace {

std::atomic<bool> stopRequested = false;
static_assert(std::atomic<bool>::is_always_lock_free);

void stopOn(int signal) {
  struct sigaction action {};
  action.sa_handler = [](int) { stopRequested = true; };
  action.sa_flags = SA_RESTART;
  ::sigaction(signal, &action, nullptr);
}

}  // namespace

int main(int count, char** arguments) {
  paddock::ignoreLdapFiles();
  paddock::acceptOpenProgram(paddock::runningExecutable());
  ::umask(077);
  stopOn(SIGTERM);
  stopOn(SIGINT);
  const std::string root = paddock::rootOfInstalled(
      paddock::runningExecutable(),
      "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/copyprivs");
  return paddock::copyprivs::runCopyPrivs({arguments, arguments + count}, root, stopRequested,
                                          std::cout, std::cerr);
}
