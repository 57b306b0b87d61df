#include "volumes/indexing_command.h"

#include <vector>

#include "platform/logger.h"
#include "platform/program_runner.h"
#include "platform/services.h"

namespace paddock {

void run_indexing_command(const std::string& path, const std::string& level) {
  std::vector<std::string> argumentVector = services().indexingCommand;
  if (argumentVector.empty()) return;
  const std::string program = argumentVector.front();
  argumentVector.push_back(path);
  argumentVector.push_back(level);
  const int error = services().programRunner->start(program, argumentVector);
  if (error == 0) return;
  services().logger->log(kLogError, "paddock_sharing: Failed to start the indexing command for " +
                                        path + " (error: " + std::to_string(error) + ")");
}

}  // namespace paddock
