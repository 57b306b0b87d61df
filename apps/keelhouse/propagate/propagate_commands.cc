#include "keelhouse/propagate/propagate_commands.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "keelhouse/core/named_share.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/suggested_words.h"
#include "keelhouse/core/terminal_text.h"
#include "keelhouse/propagate/dry_run.h"
#include "keelhouse/propagate/run_follower.h"
#include "keelhouse/propagate/run_status.h"
#include "keelhouse/propagate/run_text.h"
#include "keelhouse/propagate/running_runs.h"
#include "protocol/keys.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPlugin = "paddock_sharing";

std::string command(const std::string& path) {
  return "keelhouse propagate " + printable(shellWord(path));
}

std::string notPushedText(const std::string& path) {
  return "the privileges of " + printable(path) + " cannot be pushed down";
}

Failure notPushed(const std::string& path, const std::string& reason) {
  return failure(notPushedText(path) + ": " + reason);
}

// Accepts what is a folder for this user; paths that only the daemon can access are left to it.
void requireFolderItself(const std::string& path) {
  if (path == "/") throw notPushed(path, "it is the whole system");
  struct stat attributes {};
  if (::lstat(path.c_str(), &attributes) != 0) {
    if (errno == EACCES && ::geteuid() != 0) return;
    throw notPushed(path, std::generic_category().message(errno));
  }
  if (S_ISLNK(attributes.st_mode)) {
    std::error_code error;
    const std::string target = std::filesystem::canonical(path, error).string();
    throw notPushed(path, "it is a link" + (error ? "" : "; name the folder itself: " + target));
  }
  if (!S_ISDIR(attributes.st_mode)) throw notPushed(path, "it is not a folder");
}

std::vector<RunningRun> runsOn(const Session& session, const std::string& path) {
  std::vector<RunningRun> runs = runningRuns(session.root);
  runs.erase(std::remove_if(runs.begin(), runs.end(),
                            [&path](const RunningRun& run) { return run.path != path; }),
             runs.end());
  return runs;
}

// Two runs on one folder would undo each other's changes, or at best make them twice.
void requireNoRun(const Session& session, const std::string& path) {
  const std::vector<RunningRun> runs = runsOn(session, path);
  if (runs.empty()) return;
  throw failure("a run works on " + printable(path) + " already, pushing down " +
                pushedWords(runs.back().mask) + "\nFollow it: " + command(path) +
                " --follow\nStop it: " + command(path) + " --stop");
}

Dictionary startRequest(const std::string& path, std::uint32_t mask) {
  Dictionary request{{"paths", Array{path}}};
  for (const PushedPart& part : kPushedParts) {
    if ((mask & part.bit) != 0) request.set(part.requestKey, 1);
  }
  return request;
}

// A program that could not even be run is in the log of the request alone, which is answered
// before.
void requireRun(const Session& session, const std::string& path) {
  constexpr std::string_view kNotRun = " cannot be run: ";
  if (session.daemon.lastRequestId().empty()) return;
  std::vector<LogLine> log;
  try {
    log = session.daemon.requestLog(session.daemon.lastRequestId());
  } catch (const Failure&) {
    // Its outcome is reported to the client that follows it.
    return;
  }
  for (const LogLine& line : log) {
    if (line.level != "error" || line.text.find(kNotRun) == std::string::npos) continue;
    throw daemonFailure(notPushedText(path) + ": " + printable(line.text));
  }
}

Dictionary start(const Session& session, const std::string& path, std::uint32_t mask) {
  Dictionary reply = session.daemon.call(kPlugin, "startPropagate", startRequest(path, mask));
  if (const std::string* error = reply.string("error"))
    throw errorFailure(notPushedText(path), *error);
  if (reply.string(protocol::kCopyPrivsStatusFile) == nullptr ||
      !reply.integer(protocol::kCopyPrivsPid)) {
    throw notPushed(path, "the daemon's reply does not say how to follow it");
  }
  requireRun(session, path);
  return reply;
}

Dictionary withStatus(Dictionary reply, const Dictionary& status) {
  reply.set("status", status);
  return reply;
}

// Throws Failure for what was not done.
void requireAllDone(const std::string& path, const RunStatus& run) {
  if (!run.error.empty()) throw notPushed(path, run.error);
  if (run.failed > 0) {
    std::string lines = errorLines(run);
    if (lines.ends_with('\n')) lines.pop_back();
    throw failure(objectsText(run.failed) + " in " + printable(path) +
                  (run.dryRun ? " could not be set:\n" : " could not be set, or not wholly:\n") +
                  lines);
  }
  if (run.stopped) {
    throw failure(
        "the run on " + path +
        " was stopped before its end\nWhat was done stays. Start it again to do the rest: "
        "what is done already is not done twice.");
  }
}

ExitStatus showResult(const Session& session, const std::string& path, Dictionary reply,
                      const Dictionary& status) {
  const RunStatus run = readRunStatus(status);
  if (session.json) {
    session.out << wire::writeJsonPretty(withStatus(std::move(reply), status)) << '\n';
  } else if (run.error.empty()) {
    session.out << resultText(path, run) << (run.dryRun ? exampleTable(run) : "");
  }
  session.out.flush();
  requireAllDone(path, run);
  return ExitStatus::done;
}

FollowedRun followed(const Dictionary& reply, const std::string& path) {
  return {path, *reply.integer(protocol::kCopyPrivsPid),
          *reply.string(protocol::kCopyPrivsStatusFile)};
}

Dictionary replyOf(const std::string& path, std::int64_t process, const std::string& statusFile) {
  return {{"path", path},
          {protocol::kCopyPrivsPid, process},
          {protocol::kCopyPrivsStatusFile, statusFile}};
}

ExitStatus follow(const Session& session, const Dictionary& reply, const std::string& path) {
  return showResult(session, path, reply, followRun(session, followed(reply, path)));
}

Failure noRun(const std::string& path) {
  std::string text = "no run works on " + printable(path);
  if (::geteuid() != 0) text += "; how an ended one went is for root to see";
  return failure(text);
}

// The daemon forgets a run once its outcome was requested. Clients that follow it must get it
// first.
void forget(const Session& session, const std::vector<RunningRun>& runs) {
  std::this_thread::sleep_for(std::chrono::seconds(1));
  for (const RunningRun& run : runs) {
    try {
      session.daemon.call(kPlugin, "statusCopyPrivs",
                          {{protocol::kCopyPrivsPid, run.process},
                           {protocol::kCopyPrivsStatusFile, run.statusFile}});
    } catch (const Failure&) {
      // It has ended nevertheless, which the daemon detects at the next request.
    }
  }
}

// The final status of a run that was ended.
Dictionary lastStatus(const RunningRun& run) {
  return readStatusFile(run.statusFile).value_or(Dictionary{});
}

void printStopped(const Session& session, const std::vector<RunningRun>& runs) {
  Array list;
  for (const RunningRun& run : runs) {
    const Dictionary status = lastStatus(run);
    list.emplace_back(withStatus(replyOf(run.path, run.process, run.statusFile), status));
    if (session.json) continue;
    session.out << (status.empty() ? printable(run.path) + ": stopped\n"
                                   : resultText(run.path, readRunStatus(status)));
  }
  if (session.json) session.out << wire::writeJsonPretty(list) << '\n';
  session.out.flush();
}

}  // namespace

ExitStatus startPropagation(const Session& session, const std::string& typedPath,
                            std::uint32_t mask, bool follows) {
  const std::string path = folderPath(session, typedPath);
  requireFolderItself(path);
  requireNoRun(session, path);
  const Dictionary reply = start(session, path, mask);
  if (follows) return follow(session, reply, path);
  if (session.json) {
    session.out << wire::writeJsonPretty(reply) << '\n';
  } else {
    session.out << "Pushing down " << pushedWords(mask) << " of " << printable(path)
                << ".\nFollow it: " << command(path) << " --follow\n";
  }
  return ExitStatus::done;
}

ExitStatus followPropagation(const Session& session, const std::string& typedPath) {
  const std::string path = folderPath(session, typedPath);
  const std::vector<RunningRun> runs = runsOn(session, path);
  if (!runs.empty()) {
    const RunningRun& run = runs.back();
    return follow(session, replyOf(path, run.process, run.statusFile), path);
  }
  const auto ended = endedRun(session.root, path);
  if (!ended) throw noRun(path);
  const std::int64_t process = readRunStatus(ended->status).process;
  return follow(session, replyOf(path, process, ended->statusFile), path);
}

ExitStatus stopPropagation(const Session& session, const std::string& typedPath) {
  const std::string path = folderPath(session, typedPath);
  if (::geteuid() != 0) throw failure("stopping a run takes root, whose program it is");
  const std::vector<RunningRun> runs = runsOn(session, path);
  if (runs.empty()) throw noRun(path);
  for (const RunningRun& run : runs) stopRun(session.root, run);
  printStopped(session, runs);
  forget(session, runs);
  return ExitStatus::done;
}

ExitStatus tryPropagation(const Session& session, const std::string& typedPath,
                          std::uint32_t mask) {
  const std::string path = folderPath(session, typedPath);
  requireFolderItself(path);
  return showResult(session, path, {{"path", path}}, runDry(session, path, mask));
}

}  // namespace paddock::keelhouse
