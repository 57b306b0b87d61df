// What callers want to be advertised, and what the thread that advertises it tells their delegates.
//
// One mutex guards it all; it is held neither while a delegate is called nor while anything else
// waits. Any thread may call, but for what is the thread's.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/dnssd/avahi_entry.h"
#include "platform/net_service.h"

namespace paddock::dns_sd {

// One service as its caller wants it. All but the first two is guarded by the mutex of the orders.
struct Order {
  Order(ServiceDescription described, NetService* service)
      : description(std::move(described)), sender(service) {}

  const ServiceDescription description;
  NetService* const sender;
  NetServiceDelegate* delegate = nullptr;
  std::shared_ptr<const Data> txt = std::make_shared<const Data>();
  bool wanted = false;
  bool refused = false;
  std::uint64_t publication = 0;  // counts those that were begun
};

// An order that is wanted, as it was when the thread looked.
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

  // Does nothing for an order that is wanted, and not refused.
  void publish(const std::shared_ptr<Order>& order);
  void stop(const std::shared_ptr<Order>& order);
  void setTxt(Order& order, std::shared_ptr<const Data> txt);
  // The delegate that was is not called any more afterwards. Waits for a call that runs, unless it
  // is made from that call.
  void setDelegate(Order& order, NetServiceDelegate* delegate);

  // No delegate is called any more afterwards; waits as `setDelegate` does.
  void close();
  // Whether the thread has ended within the patience. After `close`.
  bool waitForEnd(std::chrono::milliseconds patience);

  // Makes the thread look again.
  void wake();

  // These are the thread's. Waits until there is something to look at, or until the time; false
  // when it is closed.
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
  void waitForCall(std::unique_lock<std::mutex>& lock, const Order* order);
  void wakeLocked();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::condition_variable told_;
  std::condition_variable endNoted_;
  std::vector<std::shared_ptr<Order>> wanted_;
  bool dirty_ = false;
  bool closed_ = false;
  bool ended_ = false;
  const Order* beingTold_ = nullptr;  // whose delegate is being called
  std::thread::id teller_;
};

}  // namespace paddock::dns_sd
