// Orders of services, and the thread that carries them out from the first publication on.
#pragma once

#include <memory>
#include <mutex>
#include <thread>

#include "platform/linux/dnssd/back_off.h"
#include "platform/linux/dnssd/dns_sd_log.h"
#include "platform/linux/dnssd/service_orders.h"

namespace paddock::dns_sd {

class AvahiPublisher : public std::enable_shared_from_this<AvahiPublisher> {
 public:
  AvahiPublisher(Logger* logger, BackOff pauses) : log_(logger), pauses_(pauses) {}
  AvahiPublisher(const AvahiPublisher&) = delete;
  AvahiPublisher& operator=(const AvahiPublisher&) = delete;

  ServiceOrders& orders() { return orders_; }
  // Any thread may call.
  void publish(const std::shared_ptr<Order>& order);
  // Withdraws everything. Waits a moment for the thread, which goes on by itself when it waits for
  // the daemon, and keeps this object alive until then.
  void close();

 private:
  void start();

  ServiceOrders orders_;
  DnsSdLog log_;
  const BackOff pauses_;
  std::mutex threadMutex_;
  std::thread thread_;
  bool isClosed_ = false;
};

}  // namespace paddock::dns_sd
