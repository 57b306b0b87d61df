#include "platform/testing/in_memory_shared_file_list.h"

#include <algorithm>
#include <utility>

namespace paddock {

struct InMemorySharedFileLists::State {
  struct Entry {
    std::string url;
    bool resolvable = true;
    SharedFileList::Item item;
  };
  std::vector<Entry> entries;
  std::vector<std::uint32_t> resolveFlags;
  bool failCreation = false;
  bool failInsertions = false;
  Status removalStatus = kSuccess;

  SharedFileList::Item append(const std::shared_ptr<State>& self, const std::string& url,
                              bool resolvable);
};

namespace {

using State = InMemorySharedFileLists::State;

class ListItem : public SharedFileListItem {
 public:
  ListItem(const std::shared_ptr<State>& state, std::string url, bool resolvable)
      : state_(state), url_(std::move(url)), resolvable_(resolvable) {}

  std::optional<std::string> resolve(std::uint32_t flags) override {
    if (const auto state = state_.lock()) state->resolveFlags.push_back(flags);
    if (!resolvable_) return std::nullopt;
    return url_;
  }

 private:
  std::weak_ptr<State> state_;
  std::string url_;
  bool resolvable_;
};

class List : public SharedFileList {
 public:
  explicit List(std::shared_ptr<State> state) : state_(std::move(state)) {}

  std::vector<Item> snapshot() override {
    std::vector<Item> items;
    for (const auto& entry : state_->entries) items.push_back(entry.item);
    return items;
  }

  Item insertLast(const std::string& url) override {
    if (state_->failInsertions) return nullptr;
    return state_->append(state_, url, true);
  }

  Status remove(const Item& item) override {
    if (state_->removalStatus != kSuccess) return state_->removalStatus;
    const auto removed =
        std::erase_if(state_->entries, [&](const auto& entry) { return entry.item == item; });
    return removed == 0 ? InMemorySharedFileLists::kNoSuchItem : kSuccess;
  }

 private:
  std::shared_ptr<State> state_;
};

}  // namespace

SharedFileList::Item State::append(const std::shared_ptr<State>& self, const std::string& url,
                                   bool resolvable) {
  auto item = std::make_shared<ListItem>(self, url, resolvable);
  entries.push_back({url, resolvable, item});
  return item;
}

InMemorySharedFileLists::InMemorySharedFileLists() : state_(std::make_shared<State>()) {}
InMemorySharedFileLists::~InMemorySharedFileLists() = default;

std::unique_ptr<SharedFileList> InMemorySharedFileLists::createSharePointList() {
  if (state_->failCreation) return nullptr;
  return std::make_unique<List>(state_);
}

std::vector<std::string> InMemorySharedFileLists::urls() const {
  std::vector<std::string> urls;
  for (const auto& entry : state_->entries) urls.push_back(entry.url);
  return urls;
}

void InMemorySharedFileLists::insert(const std::string& url) { state_->append(state_, url, true); }

void InMemorySharedFileLists::insertUnresolvable(const std::string& url) {
  state_->append(state_, url, false);
}

void InMemorySharedFileLists::failCreation(bool fail) { state_->failCreation = fail; }
void InMemorySharedFileLists::failInsertions(bool fail) { state_->failInsertions = fail; }
void InMemorySharedFileLists::failRemovals(Status status) { state_->removalStatus = status; }

std::vector<std::uint32_t> InMemorySharedFileLists::resolveFlags() const {
  return state_->resolveFlags;
}

namespace {

class ForwardingItem final : public SharedFileListItem {
 public:
  ForwardingItem(SharedFileList::Item wrapped, CallRules& rules)
      : wrapped_(std::move(wrapped)), rules_(rules) {}

  std::optional<std::string> resolve(std::uint32_t flags) override {
    const ServiceCall call{"resolve", "", std::to_string(flags)};
    if (rules_.before("sharedFileListItem.resolve", call) != 0) return std::nullopt;
    return wrapped_->resolve(flags);
  }
  const SharedFileList::Item& wrapped() const { return wrapped_; }

 private:
  SharedFileList::Item wrapped_;
  CallRules& rules_;
};

class ForwardingList final : public SharedFileList {
 public:
  ForwardingList(std::unique_ptr<SharedFileList> wrapped, CallRules& rules)
      : wrapped_(std::move(wrapped)), rules_(rules) {}

  std::vector<Item> snapshot() override {
    if (rules_.before("sharedFileList.snapshot", {"snapshot", "", ""}) != 0) return {};
    std::vector<Item> items = wrapped_->snapshot();
    for (Item& item : items) item = std::make_shared<ForwardingItem>(item, rules_);
    return items;
  }
  Item insertLast(const std::string& url) override {
    if (rules_.before("sharedFileList.insertLast", {"insertLast", url, ""}) != 0) return nullptr;
    const Item item = wrapped_->insertLast(url);
    if (!item) return nullptr;
    return std::make_shared<ForwardingItem>(item, rules_);
  }
  Status remove(const Item& item) override {
    const int number = rules_.before("sharedFileList.remove", {"removeItem", "", ""});
    if (number != 0) return number;
    const auto* forwarding = dynamic_cast<const ForwardingItem*>(item.get());
    return wrapped_->remove(forwarding == nullptr ? item : forwarding->wrapped());
  }

 private:
  std::unique_ptr<SharedFileList> wrapped_;
  CallRules& rules_;
};

}  // namespace

std::unique_ptr<SharedFileList> ForwardingSharedFileLists::createSharePointList() {
  const ServiceCall call{"createSharePointList", "", ""};
  if (ask("sharedFileLists.createSharePointList", call) != 0) return nullptr;
  auto list = wrapped().createSharePointList();
  if (!list) return nullptr;
  return std::make_unique<ForwardingList>(std::move(list), rules());
}

}  // namespace paddock
