// Keeps the advertisement of the share points, as the request handler does, and nothing else.
#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "platform/net_service.h"

namespace paddock {

class Advertiser : public NetServiceOwner {
 public:
  std::shared_ptr<NetService> netService() const override {
    const std::lock_guard lock(mutex_);
    return service_;
  }
  void setNetService(std::shared_ptr<NetService> service) override {
    const std::lock_guard lock(mutex_);
    service_.swap(service);
  }
  std::mutex& renewalMutex() override { return renewalMutex_; }
  void netServiceWillPublish(NetService&) override {}
  void netServiceDidNotPublish(NetService&, const Dictionary&) override {}
  void netServiceDidStop(NetService&) override {}

 private:
  mutable std::mutex mutex_;
  std::mutex renewalMutex_;
  std::shared_ptr<NetService> service_;
};

}  // namespace paddock
