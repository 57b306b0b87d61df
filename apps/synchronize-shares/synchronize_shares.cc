#include "synchronize-shares/synchronize_shares.h"

#include <syslog.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <utility>

#include "base/text.h"
#include "configuration/configuration.h"
#include "frame/program_frame.h"
#include "platform/linux/configured_options.h"
#include "platform/linux/files/linux_text_files.h"
#include "samba/smb_check.h"
#include "synchronize-shares/kept_lists.h"
#include "synchronize-shares/passed_lists.h"
#include "synchronize-shares/run_lock.h"
#include "synchronize-shares/samba_configuration.h"
#include "synchronize-shares/share_selection.h"

namespace paddock::synchronizer {

namespace {

constexpr const char* kUsage = "usage: synchronize-shares [--no-limit | --help | --version]";
// Others wait for the lock no longer than half a minute.
constexpr std::chrono::seconds kTimeForAllLists{15};

std::string lockFolder(const std::string& root) { return root + "/run/paddock"; }

struct Published {
  std::uint64_t change = 0;              // the last one that smbd was not notified of, 0: none
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
    // Held from the read on, so that the file is never replaced by an older state.
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
    // Recorded first, so that an interrupted run leaves no change without notification.
    if (text != before) {
      changes.add();
      file_.replace(text);
    }
    published.change = changes.untold();
    return published;
  }

  // Not under the lock: waiting for a slow smbd must not block the next change.
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
    // What was set concurrently over the connections that are closed now.
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

  // Without the lock: others need not wait for it.
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
  const frame::ProgramRun run("synchronize-shares", kUsage, out, error);
  const std::string option = words.size() > 1 ? words[1] : "";
  const bool isAlone = words.size() == 2;
  const frame::Asked asked{.help = isAlone && option == "--help",
                           .version = isAlone && option == "--version"};
  if (asked.isAny()) return run.describe(asked);
  const bool isUnlimited = isAlone && option == "--no-limit";
  if (words.size() > 1 && !isUnlimited) return run.refuse("\"" + option + "\" is no option");
  return run.attempt([&] {
    Publication publication(root, isUnlimited, log);
    const Published published = publication.publish();
    for (const std::string& text : published.keptByModes) {
      log.log(kLogWarning, text);
      run.say(text);
    }
    if (published.change != 0) publication.tellServer(published);
    return frame::done;
  });
}

SystemLog::SystemLog() { ::openlog("synchronize-shares", LOG_PID, LOG_DAEMON); }

void SystemLog::log(int priority, std::string_view text) {
  std::string line(text);
  if (const char* request = std::getenv("PADDOCK_REQUEST_ID"))
    line.append(" [request ").append(request).append("]");
  ::syslog(LOG_DAEMON | priority, "%s", printable(line).c_str());
}

}  // namespace paddock::synchronizer
