#include "platform/linux/dnssd/service_orders.h"

#include <algorithm>

namespace paddock::dns_sd {

void ServiceOrders::publish(const std::shared_ptr<Order>& order) {
  const std::lock_guard lock(mutex_);
  if (closed_ || (order->wanted && !order->refused)) return;
  if (!order->wanted) wanted_.push_back(order);
  order->wanted = true;
  order->refused = false;
  ++order->publication;
  wakeLocked();
}

void ServiceOrders::stop(const std::shared_ptr<Order>& order) {
  const std::lock_guard lock(mutex_);
  if (!order->wanted) return;
  order->wanted = false;
  wanted_.erase(std::find(wanted_.begin(), wanted_.end(), order));
  wakeLocked();
}

void ServiceOrders::setTxt(Order& order, std::shared_ptr<const Data> txt) {
  const std::lock_guard lock(mutex_);
  order.txt = std::move(txt);
  wakeLocked();
}

void ServiceOrders::setDelegate(Order& order, NetServiceDelegate* delegate) {
  std::unique_lock lock(mutex_);
  order.delegate = delegate;
  waitForCall(lock, &order);
}

void ServiceOrders::close() {
  std::unique_lock lock(mutex_);
  closed_ = true;
  for (const auto& order : wanted_) order->wanted = false;
  wanted_.clear();
  wakeLocked();
  waitForCall(lock, nullptr);
}

bool ServiceOrders::waitForEnd(std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  return endNoted_.wait_for(lock, patience, [this] { return ended_; });
}

void ServiceOrders::wake() {
  const std::lock_guard lock(mutex_);
  wakeLocked();
}

void ServiceOrders::wakeLocked() {
  dirty_ = true;
  changed_.notify_one();
}

bool ServiceOrders::wait(std::optional<Time> until) {
  std::unique_lock lock(mutex_);
  const auto isWoken = [this] { return dirty_ || closed_; };
  if (until)
    changed_.wait_until(lock, *until, isWoken);
  else
    changed_.wait(lock, isWoken);
  dirty_ = false;
  return !closed_;
}

bool ServiceOrders::isClosed() {
  const std::lock_guard lock(mutex_);
  return closed_;
}

std::vector<Wish> ServiceOrders::wishes() {
  const std::lock_guard lock(mutex_);
  std::vector<Wish> wishes;
  for (const auto& order : wanted_) wishes.push_back({order, order->publication, order->txt});
  return wishes;
}

void ServiceOrders::noteRefused(const Wish& wish) {
  const std::lock_guard lock(mutex_);
  if (wish.order->publication == wish.publication) wish.order->refused = true;
}

void ServiceOrders::noteEnd() {
  const std::lock_guard lock(mutex_);
  ended_ = true;
  endNoted_.notify_all();
}

void ServiceOrders::tellWillPublish(Order& order) {
  tell(order, [&order](auto& delegate) { delegate.netServiceWillPublish(*order.sender); });
}

void ServiceOrders::tellDidNotPublish(Order& order, const Dictionary& errors) {
  tell(order, [&](auto& delegate) { delegate.netServiceDidNotPublish(*order.sender, errors); });
}

void ServiceOrders::tellDidStop(Order& order) {
  tell(order, [&order](auto& delegate) { delegate.netServiceDidStop(*order.sender); });
}

// A service that is being destroyed has no delegate, so its sender is there during the call.
template <typename Call>
void ServiceOrders::tell(Order& order, Call&& call) {
  std::unique_lock lock(mutex_);
  if (closed_ || order.delegate == nullptr) return;
  NetServiceDelegate& delegate = *order.delegate;
  beingTold_ = &order;
  teller_ = std::this_thread::get_id();
  lock.unlock();
  call(delegate);
  lock.lock();
  beingTold_ = nullptr;
  told_.notify_all();
}

// For the call of this order's delegate; null: of any.
void ServiceOrders::waitForCall(std::unique_lock<std::mutex>& lock, const Order* order) {
  told_.wait(lock, [&] {
    const bool running = beingTold_ != nullptr && (order == nullptr || beingTold_ == order);
    return !running || teller_ == std::this_thread::get_id();
  });
}

}  // namespace paddock::dns_sd
