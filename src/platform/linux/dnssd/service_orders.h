// The services that callers want advertised, and the delegate notifications of the advertising
// thread.
//
// Guarded by one mutex, which is held neither while a delegate is called nor while anything else
// blocks. Thread-safe, except for the thread's own functions.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "platform/linux/dnssd/avahi_entry.h"
#include "platform/net_service.h"

namespace paddock::dns_sd {

// One service as requested by its caller. All but the first two members are guarded by the mutex of
// the orders.
struct Order {
  Order(ServiceDescription described, NetService* service)
      : description(std::move(described)), sender(service) {}

  const ServiceDescription description;
  NetService* const sender;
  NetServiceDelegate* delegate = nullptr;
  std::shared_ptr<const Data> txt = std::make_shared<const Data>();
  bool wanted = false;
  bool refused = false;
  std::uint64_t publication = 0;  // counts started publications
};

// Snapshot of a wanted order for the thread.
struct Wish {
  std::shared_ptr<Order> order;
  std::uint64_t publication = 0;
  std::shared_ptr<const Data> txt;

  bool isOfPublication(const Wish& other) const {
    return order == other.order && publication == other.publication;
  }
};

class ServiceOrders {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // No effect on an order that is wanted and not refused.
  void publish(const std::shared_ptr<Order>& order);
  void stop(const std::shared_ptr<Order>& order);
  void setTxt(Order& order, std::shared_ptr<const Data> txt);
  // The previous delegate is not called any more afterwards. Waits for a running call, unless
  // called from it.
  void setDelegate(Order& order, NetServiceDelegate* delegate);

  // No delegate is called any more afterwards; waits as `setDelegate` does.
  void close();
  // Whether the thread has ended within the patience. After `close`.
  bool waitForEnd(std::chrono::milliseconds patience);

  // Wakes the thread to check the orders.
  void wake();

  // The thread's own functions. Waits until the orders have changed, or until the time; false when
  // closed.
  bool wait(std::optional<Time> until);
  bool isClosed();
  std::vector<Wish> wishes();
  void noteRefused(const Wish& wish);
  void noteEnd();
  void tellWillPublish(Order& order);
  void tellDidNotPublish(Order& order, const Dictionary& errors);
  void tellDidStop(Order& order);

 private:
  template <typename Call>
  void tell(Order& order, Call&& call);
  void waitForCall(const Order* order) PADDOCK_REQUIRES(mutex_);
  void wakeLocked() PADDOCK_REQUIRES(mutex_);

  Mutex mutex_;
  ConditionVariable changed_;
  ConditionVariable told_;
  ConditionVariable endNoted_;
  std::vector<std::shared_ptr<Order>> wanted_ PADDOCK_GUARDED_BY(mutex_);
  bool dirty_ PADDOCK_GUARDED_BY(mutex_) = false;
  bool closed_ PADDOCK_GUARDED_BY(mutex_) = false;
  bool ended_ PADDOCK_GUARDED_BY(mutex_) = false;
  // The order whose delegate is being called.
  const Order* beingTold_ PADDOCK_GUARDED_BY(mutex_) = nullptr;
  std::thread::id teller_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock::dns_sd
