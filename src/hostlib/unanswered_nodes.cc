#include "paddock/unanswered_nodes.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <deque>
#include <map>

#include "base/mutex.h"
#include "paddock/sys_logger.h"

namespace paddock {
namespace {

constexpr int kWarning = 4;
constexpr int kInformation = 6;
// Of how many requests it is known that they have their line.
constexpr std::size_t kRequests = 256;

struct Mark {
  NodeTrouble trouble = NodeTrouble::unreachable;
  std::string error;
  std::chrono::system_clock::time_point since;
  std::deque<std::string> logged;  // ids of requests; empty outside of one
};

Mutex gMutex;
std::map<std::string, Mark> gMarks PADDOCK_GUARDED_BY(gMutex);
// Avoids lock contention while all nodes answer.
std::atomic<bool> gAny = false;

// Whether the request has no line yet; it has one then.
bool takeTurn(Mark& mark, const std::string& request) {
  if (std::find(mark.logged.begin(), mark.logged.end(), request) != mark.logged.end()) return false;
  if (mark.logged.size() >= kRequests) mark.logged.pop_front();
  mark.logged.push_back(request);
  return true;
}

const char* sentenceFor(NodeTrouble trouble) {
  switch (trouble) {
    case NodeTrouble::refused:
      return " refuses to answer";
    case NodeTrouble::broken:
      return " cannot be read";
    case NodeTrouble::unreachable:
      break;
  }
  return " does not answer";
}

}  // namespace

NodeTrouble nodeTroubleOf(std::optional<Status> error) {
  switch (error.value_or(EIO)) {
    case EAGAIN:
    case EBUSY:
    case ECONNABORTED:
    case ECONNREFUSED:
    case ECONNRESET:
    case EHOSTDOWN:
    case EHOSTUNREACH:
    case ENETDOWN:
    case ENETUNREACH:
    case ENOTCONN:
    case EPIPE:
    case ETIMEDOUT:
      return NodeTrouble::unreachable;
    case EACCES:
    case EPERM:
      return NodeTrouble::refused;
    default:
      return NodeTrouble::broken;
  }
}

const char* nodeTroubleName(NodeTrouble trouble) {
  switch (trouble) {
    case NodeTrouble::refused:
      return "refused";
    case NodeTrouble::broken:
      return "broken";
    case NodeTrouble::unreachable:
      break;
  }
  return "unreachable";
}

void noteUnanswered(const std::string& path, NodeTrouble trouble, const std::string& error) {
  bool isTurn = false;
  {
    const MutexLock lock(gMutex);
    const auto [found, isNew] = gMarks.try_emplace(path);
    if (isNew) found->second.since = std::chrono::system_clock::now();
    found->second.trouble = trouble;
    found->second.error = error;
    gAny = true;
    isTurn = takeTurn(found->second, currentRequestId());
  }
  if (isTurn)
    logMessage(kWarning,
               "the directory node " + path + sentenceFor(trouble) + " and is left out: " + error);
}

void noteAnswered(const std::string& path) {
  if (!gAny) return;
  {
    const MutexLock lock(gMutex);
    if (gMarks.erase(path) == 0) return;
    gAny = !gMarks.empty();
  }
  logMessage(kInformation, "the directory node " + path + " answers again");
}

std::vector<UnansweredNode> unansweredNodes() {
  const MutexLock lock(gMutex);
  std::vector<UnansweredNode> nodes;
  nodes.reserve(gMarks.size());
  for (const auto& [path, mark] : gMarks)
    nodes.push_back({path, mark.trouble, mark.error, mark.since});
  return nodes;
}

}  // namespace paddock
