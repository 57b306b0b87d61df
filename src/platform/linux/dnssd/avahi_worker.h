// The thread that advertises what callers have ordered.
//
// It creates and replaces the connection, and makes every call of Avahi's client library, because
// each may block half a minute for a bus or a daemon that does not answer. The library's own thread
// only records changes of state and wakes this one. Lock order: the poll thread's lock, which
// protects the library, before the lock of the orders.
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
  // Orders and log must outlive this object.
  AvahiWorker(ServiceOrders& orders, DnsSdLog& log, BackOff pauses);
  AvahiWorker(const AvahiWorker&) = delete;
  AvahiWorker& operator=(const AvahiWorker&) = delete;

  // Runs until the orders are closed; everything is then withdrawn.
  void run();

 private:
  using Time = std::chrono::steady_clock::time_point;

  // A publication in progress.
  struct Job {
    explicit Job(Wish began) : wish(std::move(began)) {}
    const ServiceDescription& description() const { return wish.order->description; }
    bool isActive() const { return !unwantedSince && advertisement; }

    Wish wish;
    std::unique_ptr<AvahiAdvertisement> advertisement;  // null: invalid description
    std::optional<Time> unwantedSince;
    std::string loggedName;
    std::shared_ptr<const Data> measured;  // of which `txt` is what fits
    Data txt;
    bool saidRefused = false;
  };

  using Jobs = std::vector<Job>;

  std::optional<Time> pass();
  // Applies the current orders.
  void followWishes(Time now);
  void begin(const Wish& wish);
  std::unique_ptr<AvahiAdvertisement> takeOver(const ServiceDescription& description);
  // Requires the lock of the poll thread.
  void carryOn(Time now);
  void withdrawUnwanted(Time now);
  Jobs::iterator end(Jobs::iterator job);
  void maintainAll(Time now);
  bool maintain(Job& job, Time now);
  void disconnect(int error);
  void letGo();
  // Records the outcome.
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
  // Pending delegate notifications, to be sent when no lock is held.
  std::vector<std::function<void()>> notices_;
};

}  // namespace paddock::dns_sd
