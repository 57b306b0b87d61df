#include "synchronize-shares/synchronize_shares.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <exception>
#include <set>
#include <stdexcept>
#include <utility>

#include "base/printable.h"
#include "configuration/configuration.h"
#include "platform/linux/configured_options.h"
#include "platform/linux/files/linux_text_files.h"
#include "samba/smb_check.h"
#include "synchronize-shares/include_file.h"
#include "synchronize-shares/kept_lists.h"
#include "synchronize-shares/passed_lists.h"
#include "synchronize-shares/run_lock.h"
#include "synchronize-shares/share_points.h"
#include "synchronize-shares/share_selection.h"
#include "synchronize-shares/smb_server.h"
#include "synchronize-shares/told_changes.h"

namespace paddock::synchronizer {

namespace {

constexpr const char* kUsage = "usage: synchronize-shares [--no-limit | --help | --version]";
// Others wait for the lock no longer than half a minute.
constexpr std::chrono::seconds kTimeForAllLists{15};
enum ExitStatus { done = 0, failed = 1, usage = 2 };

std::string lockFolder(const std::string& root) { return root + "/run/paddock"; }

void say(std::ostream& error, const std::string& text) {
  error << "synchronize-shares: " << printable(text) << std::endl;
}

struct Published {
  std::uint64_t change = 0;              // the last one that smbd was not told of, 0: none
  std::vector<SharePoint> switched;      // served by lists from now on, and by modes before
  std::vector<std::string> keptByModes;  // of each share that should have been: why not
};

class Publication {
 public:
  Publication(std::string root, bool isUnlimited, Logger& log)
      : root_(std::move(root)),
        configuration_(readInstalledConfiguration(root_)),
        attribute_(configuredPrivileges(configuration_, root_).attribute),
        isUnlimited_(isUnlimited),
        log_(log) {}

  Published publish() {
    if (isUnlimited_) keepAtLeisure();
    // Held from the reading on, so that what is written is never older than what is there.
    const RunLock lock(lockFolder(root_));
    std::vector<SharePoint> all = read();
    Published published;
    const std::string before = file_.text();
    const auto end = std::chrono::steady_clock::now() + kTimeForAllLists;
    for (SharePoint& share : all) decide(share, before, end, published);
    const ShareSelection selection = selectShares(all, [this](const std::string& lines) {
      return samba::faultSaidByTestparm(root_ + "/usr/bin/testparm", lines).value_or("");
    });
    for (const std::string& text : selection.leftOut) log_.log(kLogWarning, text);
    const std::string text = includeFileText(selection.published, attribute_);
    ToldChanges changes(lock.descriptor());
    // Noted before, so that a run that is ended in between leaves nobody untold.
    if (text != before) {
      changes.add();
      file_.replace(text);
    }
    published.change = changes.untold();
    return published;
  }

  // Not under the lock: who waits for a slow smbd does not keep the next change back.
  void tellServer(const Published& published) {
    const std::string program = root_ + "/usr/bin/smbcontrol";
    std::string failure = tellSmbServer(program);
    for (const SharePoint& share : published.switched)
      if (failure.empty()) failure = endConnections(program, share.nameOverSMB);
    if (!failure.empty()) throw std::runtime_error("the shares are written, but " + failure);
    {
      const RunLock lock(lockFolder(root_));
      ToldChanges(lock.descriptor()).told(published.change);
    }
    // What was set meanwhile over the connections that are ended now.
    for (const SharePoint& share : published.switched)
      if (const std::string fault =
              ListKeeper(attribute_, isUnlimited_ ? ListKeeper::noLimits() : ListKeeper::Limits{})
                  .keepBelow(share.path, Served::unpublished);
          !fault.empty())
        throw std::runtime_error(share.path + " is served by lists now, but " + fault);
  }

 private:
  std::vector<SharePoint> read() const {
    return readSharePoints(configuredDirectory(configuration_, root_));
  }

  // However long it takes, others need not wait for it.
  void keepAtLeisure() {
    const std::string before = file_.text();
    for (const SharePoint& share : read()) {
      const Served served = servedBefore(before, share.nameOverSMB, share.path);
      if (served == Served::byLists || !passesListsOn(share.path, attribute_)) continue;
      ListKeeper keeper(attribute_, ListKeeper::noLimits());
      if (keeper.keepBelow(share.path, served).empty()) kept_.insert(share.path);
    }
  }

  void decide(SharePoint& share, const std::string& before,
              std::chrono::steady_clock::time_point end, Published& published) const {
    share.passesListsOn = passesListsOn(share.path, attribute_);
    const Served served = servedBefore(before, share.nameOverSMB, share.path);
    if (!share.passesListsOn || served == Served::byLists) return;
    std::string fault;
    if (!kept_.contains(share.path)) {
      ListKeeper::Limits limits;
      limits.time = std::clamp(std::chrono::duration_cast<std::chrono::milliseconds>(
                                   end - std::chrono::steady_clock::now()),
                               std::chrono::milliseconds(0), limits.time);
      fault = ListKeeper(attribute_, limits).keepBelow(share.path, served);
    }
    share.passesListsOn = fault.empty();
    if (!fault.empty())
      published.keptByModes.push_back("share point \"" + share.recordName +
                                      "\" is served by its modes, and not by its lists: " + fault);
    else if (served == Served::byModes)
      published.switched.push_back(share);
  }

  const std::string root_;
  const Dictionary configuration_;
  const std::string attribute_;
  const bool isUnlimited_;
  Logger& log_;
  LinuxTextFiles files_;
  IncludeFile file_{files_, root_};
  std::set<std::string> kept_;
};

}  // namespace

int runSynchronizeShares(const std::vector<std::string>& words, const std::string& root,
                         Logger& log, std::ostream& out, std::ostream& error) {
  const bool isAsking = words.size() == 2 && (words[1] == "--help" || words[1] == "--version");
  if (isAsking) {
    out << (words[1] == "--help" ? kUsage : "synchronize-shares " PADDOCK_VERSION) << std::endl;
    return done;
  }
  const bool isUnlimited = words.size() == 2 && words[1] == "--no-limit";
  if (words.size() > 1 && !isUnlimited) {
    say(error, "\"" + words[1] + "\" is no option");
    error << kUsage << std::endl;
    return usage;
  }
  try {
    Publication publication(root, isUnlimited, log);
    const Published published = publication.publish();
    for (const std::string& text : published.keptByModes) {
      log.log(kLogWarning, text);
      say(error, text);
    }
    if (published.change != 0) publication.tellServer(published);
    return done;
  } catch (const std::exception& exception) {
    say(error, exception.what());
    return failed;
  }
}

}  // namespace paddock::synchronizer
