#include "platform/linux/dnssd/service_orders.h"

#include <algorithm>

namespace paddock::dns_sd {

void ServiceOrders::publish(const std::shared_ptr<Order>& order) {
  const MutexLock lock(mutex_);
  if (closed_ || (order->wanted && !order->refused)) return;
  if (!order->wanted) wanted_.push_back(order);
  order->wanted = true;
  order->refused = false;
  ++order->publication;
  wakeLocked();
}

void ServiceOrders::stop(const std::shared_ptr<Order>& order) {
  const MutexLock lock(mutex_);
  if (!order->wanted) return;
  order->wanted = false;
  wanted_.erase(std::find(wanted_.begin(), wanted_.end(), order));
  wakeLocked();
}

void ServiceOrders::setTxt(Order& order, std::shared_ptr<const Data> txt) {
  const MutexLock lock(mutex_);
  order.txt = std::move(txt);
  wakeLocked();
}

void ServiceOrders::setDelegate(Order& order, NetServiceDelegate* delegate) {
  MutexLock lock(mutex_);
  order.delegate = delegate;
  waitForCall(&order);
}

void ServiceOrders::close() {
  MutexLock lock(mutex_);
  closed_ = true;
  for (const auto& order : wanted_) order->wanted = false;
  wanted_.clear();
  wakeLocked();
  waitForCall(nullptr);
}

bool ServiceOrders::waitForEnd(std::chrono::milliseconds patience) {
  MutexLock lock(mutex_);
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!ended_ && endNoted_.wait_until(mutex_, end)) continue;
  return ended_;
}

void ServiceOrders::wake() {
  const MutexLock lock(mutex_);
  wakeLocked();
}

void ServiceOrders::wakeLocked() {
  dirty_ = true;
  changed_.notify_one();
}

bool ServiceOrders::wait(std::optional<Time> until) {
  MutexLock lock(mutex_);
  while (!dirty_ && !closed_) {
    if (!until)
      changed_.wait(mutex_);
    else if (!changed_.wait_until(mutex_, *until))
      break;
  }
  dirty_ = false;
  return !closed_;
}

bool ServiceOrders::isClosed() {
  const MutexLock lock(mutex_);
  return closed_;
}

std::vector<Wish> ServiceOrders::wishes() {
  const MutexLock lock(mutex_);
  std::vector<Wish> wishes;
  for (const auto& order : wanted_) wishes.push_back({order, order->publication, order->txt});
  return wishes;
}

void ServiceOrders::noteRefused(const Wish& wish) {
  const MutexLock lock(mutex_);
  if (wish.order->publication == wish.publication) wish.order->refused = true;
}

void ServiceOrders::noteEnd() {
  const MutexLock lock(mutex_);
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
  MutexLock lock(mutex_);
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
void ServiceOrders::waitForCall(const Order* order) {
  while (beingTold_ != nullptr && (order == nullptr || beingTold_ == order) &&
         teller_ != std::this_thread::get_id())
    told_.wait(mutex_);
}

}  // namespace paddock::dns_sd
