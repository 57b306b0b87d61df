#include "keelhouse/propagate/run_follower.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <limits>
#include <optional>
#include <utility>

#include "base/status.h"
#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/interruption.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/suggested_words.h"
#include "keelhouse/propagate/progress_display.h"
#include "keelhouse/propagate/running_runs.h"
#include "protocol/keys.h"

namespace paddock::keelhouse {

namespace {

using Clock = std::chrono::steady_clock;

std::string hints(const std::string& path) {
  const std::string command = "keelhouse propagate " + printable(shellWord(path));
  return "Follow it: " + command + " --follow\nStop it: " + command + " --stop";
}

// Whether there is a process of that number, of any user.
bool isAlive(std::int64_t process) {
  if (process <= 0 || process > std::numeric_limits<pid_t>::max()) return false;
  return ::kill(static_cast<pid_t>(process), 0) == 0 || errno != ESRCH;
}

class Follower {
 public:
  Follower(const Session& session, const FollowedRun& run, const FollowTimes& times)
      : session_(session), run_(run), times_(times), display_(session) {}

  Dictionary follow() {
    for (auto pause = times_.firstPause;; pause = std::min(2 * pause, times_.longestPause)) {
      if (auto last = ask()) return std::move(*last);
      interruption_.wait(pause);
      if (interruption_.happened()) throw interrupted();
    }
  }

 private:
  // The last status, when the run has completed.
  std::optional<Dictionary> ask() {
    auto reply = answer();
    if (!reply) return std::nullopt;
    if (const std::string* error = reply->string("error")) throw forgotten(*error);
    const Dictionary* status = reply->dictionary("status");
    if (status != nullptr) display_.show(readRunStatus(*status));
    if (status != nullptr && readRunStatus(*status).completed) return *status;
    watchProcess(status != nullptr ? *status : Dictionary{});
    return std::nullopt;
  }

  // Absent while the daemon does not respond, as during a restart.
  std::optional<Dictionary> answer() {
    try {
      Dictionary reply = session_.daemon.call("paddock_sharing", "statusCopyPrivs",
                                              {{protocol::kCopyPrivsPid, run_.process},
                                               {protocol::kCopyPrivsStatusFile, run_.statusFile}});
      unanswered_.reset();
      cutOff_ = false;
      return reply;
    } catch (const Failure& failed) {
      if (!unanswered_) unanswered_ = Clock::now();
      // A daemon that shuts down may still cut off a request.
      const bool mayReturn = failed.status() == ExitStatus::unreachable || !cutOff_;
      cutOff_ = cutOff_ || failed.status() != ExitStatus::unreachable;
      if (!mayReturn || Clock::now() - *unanswered_ > times_.patience) throw;
      return std::nullopt;
    }
  }

  // A program that was killed leaves its last progress behind.
  void watchProcess(const Dictionary& status) {
    const bool moved = !last_ || status != *last_;
    if (moved) last_ = status;
    if (moved || isRunning(status)) {
      quietSince_ = Clock::now();
    } else if (Clock::now() - quietSince_ > times_.silence) {
      throw lost();
    }
  }

  bool isRunning(const Dictionary& status) const {
    if (const auto process = status.integer("pid")) return isAlive(*process);
    const auto runs = runningRuns(session_.root);
    return std::any_of(runs.begin(), runs.end(), [this](const RunningRun& running) {
      return running.statusFile == run_.statusFile;
    });
  }

  Failure interrupted() {
    display_.clear();
    return failure("interrupted; the run goes on\n" + hints(run_.path));
  }
  Failure forgotten(const std::string& error) {
    display_.clear();
    const bool gone = statusOfText(error) == COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR;
    if (gone && isRunning(last_.value_or(Dictionary{}))) {
      return failure("the status file of the run on " + printable(run_.path) +
                     " is gone\nThe run goes on, and nobody can tell how far it is. Stop it: "
                     "keelhouse propagate " +
                     printable(shellWord(run_.path)) + " --stop");
    }
    if (gone && last_) {
      return failure("the run on " + printable(run_.path) +
                     " has ended, and somebody else was told how\n"
                     "Run it again to be sure: what is done already is not done twice.");
    }
    return errorFailure("the run on " + printable(run_.path) + " cannot be followed", error);
  }
  Failure lost() {
    display_.clear();
    return failure("the program that did it for " + printable(run_.path) +
                   " is gone without having completed\n"
                   "The system's log may say why. Start it again: what is done already is not "
                   "done twice.");
  }

  const Session& session_;
  const FollowedRun& run_;
  const FollowTimes& times_;
  Interruption interruption_;
  ProgressDisplay display_;
  std::optional<Clock::time_point> unanswered_;
  bool cutOff_ = false;
  std::optional<Dictionary> last_;
  Clock::time_point quietSince_ = Clock::now();
};

}  // namespace

Dictionary followRun(const Session& session, const FollowedRun& run, const FollowTimes& times) {
  return Follower(session, run, times).follow();
}

}  // namespace paddock::keelhouse
