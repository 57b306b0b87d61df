#include "platform/testing/faulty_shared_file_list.h"

#include <utility>

namespace paddock {

namespace {

class FaultyItem : public SharedFileListItem {
 public:
  FaultyItem(SharedFileList::Item wrapped, FaultPlan& plan)
      : wrapped_(std::move(wrapped)), plan_(plan) {}

  std::optional<std::string> resolve(std::uint32_t flags) override {
    if (plan_.fails("sharedFileListItem.resolve")) return std::nullopt;
    return wrapped_->resolve(flags);
  }
  const SharedFileList::Item& wrapped() const { return wrapped_; }

 private:
  SharedFileList::Item wrapped_;
  FaultPlan& plan_;
};

class FaultyList : public SharedFileList {
 public:
  FaultyList(std::unique_ptr<SharedFileList> wrapped, FaultPlan& plan)
      : wrapped_(std::move(wrapped)), plan_(plan) {}

  std::vector<Item> snapshot() override {
    if (plan_.fails("sharedFileList.snapshot")) return {};
    std::vector<Item> items = wrapped_->snapshot();
    for (Item& item : items) item = std::make_shared<FaultyItem>(item, plan_);
    return items;
  }

  Item insertLast(const std::string& url) override {
    if (plan_.fails("sharedFileList.insertLast")) return nullptr;
    const Item item = wrapped_->insertLast(url);
    if (!item) return nullptr;
    return std::make_shared<FaultyItem>(item, plan_);
  }

  Status remove(const Item& item) override {
    if (plan_.fails("sharedFileList.remove")) return plan_.errorNumber();
    const auto* faulty = dynamic_cast<const FaultyItem*>(item.get());
    return wrapped_->remove(faulty == nullptr ? item : faulty->wrapped());
  }

 private:
  std::unique_ptr<SharedFileList> wrapped_;
  FaultPlan& plan_;
};

}  // namespace

std::unique_ptr<SharedFileList> FaultySharedFileLists::createSharePointList() {
  if (plan_.fails("sharedFileLists.createSharePointList")) return nullptr;
  auto list = wrapped_.createSharePointList();
  if (!list) return nullptr;
  return std::make_unique<FaultyList>(std::move(list), plan_);
}

}  // namespace paddock
