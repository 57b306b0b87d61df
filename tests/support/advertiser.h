// Keeps the advertisement of the share points, as the request handler does, and nothing else.
#pragma once

#include <memory>
#include <utility>

#include "base/mutex.h"
#include "platform/net_service.h"

namespace paddock {

class Advertiser : public NetServiceOwner {
 public:
  std::shared_ptr<NetService> netService() const override {
    const MutexLock lock(mutex_);
    return service_;
  }
  void setNetService(std::shared_ptr<NetService> service) override {
    const MutexLock lock(mutex_);
    service_.swap(service);
  }
  Mutex& renewalMutex() override { return renewalMutex_; }
  void netServiceWillPublish(NetService&) override {}
  void netServiceDidNotPublish(NetService&, const Dictionary&) override {}
  void netServiceDidStop(NetService&) override {}

 private:
  mutable Mutex mutex_;
  Mutex renewalMutex_;
  std::shared_ptr<NetService> service_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock
