// Orders of services, and the thread that executes them, started with the first publication.
#pragma once

#include <memory>
#include <thread>

#include "base/mutex.h"
#include "platform/linux/dnssd/avahi_link.h"
#include "platform/linux/dnssd/service_orders.h"

namespace paddock::dns_sd {

class AvahiPublisher : public std::enable_shared_from_this<AvahiPublisher> {
 public:
  AvahiPublisher(Logger* logger, BackOff pauses) : log_(logger), pauses_(pauses) {}
  AvahiPublisher(const AvahiPublisher&) = delete;
  AvahiPublisher& operator=(const AvahiPublisher&) = delete;

  ServiceOrders& orders() { return orders_; }
  // Thread-safe.
  void publish(const std::shared_ptr<Order>& order);
  // Withdraws everything. Waits a moment for the thread, which continues in the background when it
  // waits for the daemon, and keeps this object alive until then.
  void close();

 private:
  void start();

  ServiceOrders orders_;
  DnsSdLog log_;
  const BackOff pauses_;
  Mutex threadMutex_;
  std::thread thread_ PADDOCK_GUARDED_BY(threadMutex_);
  bool isClosed_ PADDOCK_GUARDED_BY(threadMutex_) = false;
};

}  // namespace paddock::dns_sd
