#include "platform/linux/dnssd/avahi_publisher.h"

#include <chrono>
#include <string>
#include <system_error>

#include "platform/linux/dnssd/avahi_worker.h"
#include "platform/logger.h"

namespace paddock::dns_sd {

namespace {

constexpr std::chrono::milliseconds kFarewell{250};

}  // namespace

void AvahiPublisher::publish(const std::shared_ptr<Order>& order) {
  orders_.publish(order);
  start();
}

void AvahiPublisher::start() {
  const MutexLock lock(threadMutex_);
  if (isClosed_ || thread_.joinable()) return;
  try {
    thread_ = std::thread([self = shared_from_this()] {
      AvahiWorker(self->orders_, self->log_, self->pauses_).run();
      self->orders_.noteEnd();
    });
  } catch (const std::system_error& error) {
    log_.log(kLogError, std::string("Nothing can be advertised on the network: ") + error.what());
  }
}

void AvahiPublisher::close() {
  orders_.close();
  log_.close();
  const MutexLock lock(threadMutex_);
  isClosed_ = true;
  if (!thread_.joinable()) return;
  if (orders_.waitForEnd(kFarewell))
    thread_.join();
  else
    thread_.detach();
}

}  // namespace paddock::dns_sd
