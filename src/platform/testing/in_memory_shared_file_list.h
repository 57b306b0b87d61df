// A shared-file list with real items, which live as long as the service. Each kind of failure
// can be switched on.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/shared_file_list.h"
#include "platform/testing/call_rules.h"

namespace paddock {

class InMemorySharedFileLists : public SharedFileLists {
 public:
  // What `remove` answers for an item that the list does not hold.
  static constexpr Status kNoSuchItem = -43;

  InMemorySharedFileLists();
  ~InMemorySharedFileLists() override;

  std::unique_ptr<SharedFileList> createSharePointList() override;

  // The URLs of the items, in order.
  std::vector<std::string> urls() const;
  void insert(const std::string& url);
  // An item that stands for `url` and cannot be resolved (its volume is not mounted).
  void insertUnresolvable(const std::string& url);

  void failCreation(bool fail);
  void failInsertions(bool fail);
  // The status of every removal from now on, the item staying; 0 to remove again.
  void failRemovals(Status status);

  // The flags that items were resolved under, one per call.
  std::vector<std::uint32_t> resolveFlags() const;

  struct State;

 private:
  std::shared_ptr<State> state_;
};

// A shared-file list. A failure is no list, no item inserted, the number from a removal, an item
// that cannot be resolved, an empty snapshot. Operations: createSharePointList, snapshot, resolve
// (detail: the flags), insertLast (subject: the URL), removeItem.
class ForwardingSharedFileLists final : public Forwarder<SharedFileLists> {
 public:
  using Forwarder::Forwarder;
  std::unique_ptr<SharedFileList> createSharePointList() override;
};

}  // namespace paddock
