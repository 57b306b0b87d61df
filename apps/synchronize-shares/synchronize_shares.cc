#include "synchronize-shares/synchronize_shares.h"

#include <cstdint>
#include <exception>
#include <stdexcept>

#include "base/printable.h"
#include "configuration/configuration.h"
#include "platform/linux/configured_options.h"
#include "platform/linux/linux_text_files.h"
#include "samba/smb_check.h"
#include "synchronize-shares/include_file.h"
#include "synchronize-shares/passed_lists.h"
#include "synchronize-shares/run_lock.h"
#include "synchronize-shares/share_points.h"
#include "synchronize-shares/share_selection.h"
#include "synchronize-shares/smb_server.h"
#include "synchronize-shares/told_changes.h"

namespace paddock::synchronizer {

namespace {

constexpr const char* kUsage = "usage: synchronize-shares [--help | --version]";
enum ExitStatus { done = 0, failed = 1, usage = 2 };

std::string lockFolder(const std::string& root) { return root + "/run/paddock"; }

void say(std::ostream& error, const std::string& text) {
  error << "synchronize-shares: " << printable(text) << std::endl;
}

// The last change that smbd was not told of, 0 when there is none.
std::uint64_t publish(const std::string& root, Logger& log) {
  const Dictionary configuration = readInstalledConfiguration(root);
  const std::string attribute = configuredPrivileges(configuration, root).attribute;
  // Held from the reading on, so that what is written is never older than what is there.
  const RunLock lock(lockFolder(root));
  std::vector<SharePoint> all = readSharePoints(configuredDirectory(configuration, root));
  for (SharePoint& share : all) share.passesListsOn = passesListsOn(share.path, attribute);
  const ShareSelection selection = selectShares(all, [&root](const std::string& lines) {
    return samba::faultSaidByTestparm(root + "/usr/bin/testparm", lines).value_or("");
  });
  for (const std::string& text : selection.leftOut) log.log(kLogWarning, text);
  LinuxTextFiles files;
  IncludeFile file(files, root);
  const std::string text = includeFileText(selection.published, attribute);
  ToldChanges changes(lock.descriptor());
  // Noted before, so that a run that is ended in between leaves nobody untold.
  if (!file.isUpToDate(text)) {
    changes.add();
    file.replace(text);
  }
  return changes.untold();
}

// Not under the lock: who waits for a slow smbd does not keep the next change back.
void tellServer(const std::string& root, std::uint64_t change) {
  const std::string failure = tellSmbServer(root + "/usr/bin/smbcontrol");
  if (!failure.empty()) throw std::runtime_error("the shares are written, but " + failure);
  const RunLock lock(lockFolder(root));
  ToldChanges(lock.descriptor()).told(change);
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
    if (const std::uint64_t change = publish(root, log)) tellServer(root, change);
    return done;
  } catch (const std::exception& exception) {
    say(error, exception.what());
    return failed;
  }
}

}  // namespace paddock::synchronizer
