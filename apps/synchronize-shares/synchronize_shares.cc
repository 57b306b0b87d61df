#include "synchronize-shares/synchronize_shares.h"

#include <exception>
#include <stdexcept>

#include "base/printable.h"
#include "configuration/configuration.h"
#include "platform/linux/configured_options.h"
#include "platform/linux/linux_text_files.h"
#include "synchronize-shares/include_file.h"
#include "synchronize-shares/run_lock.h"
#include "synchronize-shares/share_points.h"
#include "synchronize-shares/share_selection.h"
#include "synchronize-shares/smb_server.h"

namespace paddock::synchronizer {

namespace {

constexpr const char* kUsage = "usage: synchronize-shares [--help | --version]";
enum ExitStatus { done = 0, failed = 1, usage = 2 };

void say(std::ostream& error, const std::string& text) {
  error << "synchronize-shares: " << printable(text) << std::endl;
}

Dictionary readTree(const std::string& root) {
  const std::string path = root + "/etc/paddock/paddockd.toml";
  std::vector<ConfigurationProblem> problems;
  Dictionary tree = readConfiguration(path, problems).tree;
  if (!problems.empty()) throw std::runtime_error(describeProblem(path, problems.front()));
  return tree;
}

// Whether the file is another one now.
bool publish(const std::string& root, Logger& log) {
  const Dictionary configuration = readTree(root);
  const std::string attribute = configuredPrivileges(configuration, root).attribute;
  // Held from the reading on, so that what is written is never older than what is there.
  const RunLock lock(root + "/run/paddock");
  const std::vector<SharePoint> all = readSharePoints(configuredDirectory(configuration, root));
  const ShareSelection selection = selectShares(all);
  for (const std::string& text : selection.leftOut) log.log(kLogWarning, text);
  LinuxTextFiles files;
  return IncludeFile(files, root).bringUpToDate(includeFileText(selection.published, attribute));
}

void tellServer(const std::string& root) {
  const std::string failure = tellSmbServer(root + "/usr/bin/smbcontrol");
  if (!failure.empty()) throw std::runtime_error("the shares are written, but " + failure);
}

}  // namespace

int runSynchronizeShares(const std::vector<std::string>& words, const std::string& root,
                         Logger& log, std::ostream& out, std::ostream& error) {
  const bool isAsking = words.size() == 2 && (words[1] == "--help" || words[1] == "--version");
  if (isAsking) {
    out << (words[1] == "--help" ? kUsage : "synchronize-shares " PADDOCK_VERSION) << std::endl;
    return done;
  }
  if (words.size() > 1) {
    say(error, "\"" + words[1] + "\" is no option");
    error << kUsage << std::endl;
    return usage;
  }
  try {
    if (publish(root, log)) tellServer(root);
    return done;
  } catch (const std::exception& exception) {
    say(error, exception.what());
    return failed;
  }
}

}  // namespace paddock::synchronizer
