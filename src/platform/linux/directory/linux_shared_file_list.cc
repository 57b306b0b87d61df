#include "platform/linux/directory/linux_shared_file_list.h"

#include <utility>

namespace paddock {

namespace {

class AcceptedItem : public SharedFileListItem {
 public:
  explicit AcceptedItem(std::string url) : url_(std::move(url)) {}
  std::optional<std::string> resolve(std::uint32_t /*flags*/) override { return url_; }

 private:
  std::string url_;
};

class EmptyList : public SharedFileList {
 public:
  std::vector<Item> snapshot() override { return {}; }
  Item insertLast(const std::string& url) override { return std::make_shared<AcceptedItem>(url); }
  Status remove(const Item& /*item*/) override { return kSuccess; }
};

}  // namespace

std::unique_ptr<SharedFileList> LinuxSharedFileLists::createSharePointList() {
  return std::make_unique<EmptyList>();
}

}  // namespace paddock
