// The thread that advertises what callers have ordered.
//
// It makes and replaces the connection, and does every call of Avahi's client library, because each
// may wait half a minute for a bus or a daemon that does not answer. The library's own thread only
// notes changes of state and wakes this one. Of the two locks, the one of the poll thread is around
// the library, and the one of the orders is taken under it.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/dnssd/avahi_advertisement.h"
#include "platform/linux/dnssd/avahi_link.h"
#include "platform/linux/dnssd/service_orders.h"

namespace paddock::dns_sd {

class DnsSdLog;

class AvahiWorker {
 public:
  // Both outlive it.
  AvahiWorker(ServiceOrders& orders, DnsSdLog& log, BackOff pauses);
  AvahiWorker(const AvahiWorker&) = delete;
  AvahiWorker& operator=(const AvahiWorker&) = delete;

  // Until the orders are closed; everything is withdrawn then.
  void run();

 private:
  using Time = std::chrono::steady_clock::time_point;

  // A publication that is carried on.
  struct Job {
    explicit Job(Wish began) : wish(std::move(began)) {}
    const ServiceDescription& description() const { return wish.order->description; }
    bool isActive() const { return !unwantedSince && advertisement; }

    Wish wish;
    std::unique_ptr<AvahiAdvertisement> advertisement;  // null: its description is wrong
    std::optional<Time> unwantedSince;
    std::string loggedName;
    std::shared_ptr<const Data> measured;  // of which `txt` is what fits
    Data txt;
    bool saidRefused = false;
  };

  using Jobs = std::vector<Job>;

  std::optional<Time> pass();
  // What callers want now.
  void followWishes(Time now);
  void begin(const Wish& wish);
  std::unique_ptr<AvahiAdvertisement> takeOver(const ServiceDescription& description);
  // With the lock of the poll thread.
  void carryOn(Time now);
  void withdrawUnwanted(Time now);
  Jobs::iterator end(Jobs::iterator job);
  void maintainAll(Time now);
  bool maintain(Job& job, Time now);
  void disconnect(int error);
  void letGo();
  // What came of it.
  void notePublished(Job& job);
  void noteRefused(Job& job, int error);
  void measureTxt(Job& job);
  void tell();

  bool hasActiveJob() const;
  std::optional<Time> nextTime() const;

  ServiceOrders& orders_;
  DnsSdLog& log_;
  AvahiLink link_;
  Jobs jobs_;
  // What delegates are to be told, once no lock is held.
  std::vector<std::function<void()>> notices_;
};

}  // namespace paddock::dns_sd
