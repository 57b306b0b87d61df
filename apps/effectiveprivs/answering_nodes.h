// A directory without the nodes that do not respond, so that a failed node does not hide the
// records of the others. The nodes left out are reported, because their records are missing.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/value.h"
#include "effectiveprivs/effectiveprivs_failure.h"
#include "platform/directory.h"

namespace paddock::effectiveprivs {

struct LeftOutNode {
  std::string path;
  std::string error;
};

// One line for people, with its end; empty where none is left out.
std::string leftOutText(const std::vector<LeftOutNode>& nodes);
// [{"path", "error"}].
Value leftOutValue(const std::vector<LeftOutNode>& nodes);

class NodeNotes;

// Not thread-safe.
class AnsweringNodes final : public DirectoryService {
 public:
  // `all` must outlive this object.
  explicit AnsweringNodes(DirectoryService& all);
  AnsweringNodes(const AnsweringNodes&) = delete;
  AnsweringNodes& operator=(const AnsweringNodes&) = delete;
  ~AnsweringNodes() override;

  // Of the nodes that have answered so far, the search node included. A node that throws is left
  // out of every session from then on; but for the host's own, without which nothing is sure, and
  // for the local directory where this process may not read it.
  std::unique_ptr<DirectorySession> openLocal() override;

  const std::vector<LeftOutNode>& leftOut() const;
  // Their paths: "/LDAP/a and /LDAP/b".
  std::string leftOutPaths() const;

  // Calls ask(), which throws DirectoryError, and again when that has left out another node. Throws
  // Failure, which begins with `what`, when nothing is left to be left out.
  template <typename Ask>
  auto ask(const std::string& what, Ask&& ask) -> decltype(ask()) {
    for (;;) {
      const std::size_t before = leftOut().size();
      try {
        return ask();
      } catch (const DirectoryError& error) {
        if (leftOut().size() == before) throw Failure(what + ": " + error.what());
      }
    }
  }

 private:
  DirectoryService& all_;
  const std::shared_ptr<NodeNotes> notes_;
};

}  // namespace paddock::effectiveprivs
