#include "platform/testing/recording_net_services.h"

#include <algorithm>
#include <utility>

#include "base/mutex.h"
#include "platform/net_service.h"

namespace paddock {

struct RecordingNetServices::State {
  Mutex mutex;
  std::vector<Service> services PADDOCK_GUARDED_BY(mutex);
};

namespace {

using State = RecordingNetServices::State;
using Service = RecordingNetServices::Service;

bool isServiceType(const std::string& type) {
  return type.size() > 6 && type.front() == '_' &&
         (type.ends_with("._tcp") || type.ends_with("._udp"));
}

bool canBePublished(const Service& service) {
  return isServiceType(service.type) && service.port != 0;
}

class RecordingNetService final : public NetService {
 public:
  RecordingNetService(std::shared_ptr<State> state, std::size_t number)
      : state_(std::move(state)), number_(number) {}
  RecordingNetService(const RecordingNetService&) = delete;
  RecordingNetService& operator=(const RecordingNetService&) = delete;
  ~RecordingNetService() override {
    change([](Service& service) {
      service.isPublished = false;
      service.isGone = true;
    });
  }

  void setDelegate(NetServiceDelegate* delegate) override {
    change([delegate](Service& service) { service.delegate = delegate; });
  }

  bool setTxtRecordData(const Data& data) override {
    std::vector<std::string> strings;
    if (!stringsOfTxtRecord(data, strings)) return false;
    change([&data](Service& service) { service.txtRecord = data; });
    return true;
  }

  void publish() override {
    bool wasPublished = false;
    const Service service = change([&wasPublished](Service& changed) {
      wasPublished = changed.isPublished;
      changed.isPublished = canBePublished(changed);
    });
    if (service.delegate == nullptr || wasPublished) return;
    if (service.isPublished) {
      service.delegate->netServiceWillPublish(*this);
    } else {
      service.delegate->netServiceDidNotPublish(*this, {{"error", "no service can be that"}});
    }
  }

  void stop() override {
    bool wasPublished = false;
    const Service service = change([&wasPublished](Service& changed) {
      wasPublished = std::exchange(changed.isPublished, false);
    });
    if (service.delegate != nullptr && wasPublished) service.delegate->netServiceDidStop(*this);
  }

 private:
  // The service as it is after the change.
  template <typename Change>
  Service change(Change changeService) {
    const MutexLock lock(state_->mutex);
    Service& service = state_->services[number_];
    changeService(service);
    return service;
  }

  std::shared_ptr<State> state_;
  std::size_t number_;
};

}  // namespace

RecordingNetServices::RecordingNetServices() : state_(std::make_shared<State>()) {}
RecordingNetServices::~RecordingNetServices() = default;

std::shared_ptr<NetService> RecordingNetServices::createService(const std::string& domain,
                                                                const std::string& type,
                                                                const std::string& name,
                                                                std::uint16_t port) {
  const MutexLock lock(state_->mutex);
  Service service;
  service.domain = domain;
  service.type = type;
  service.name = name;
  service.port = port;
  state_->services.push_back(std::move(service));
  return std::make_shared<RecordingNetService>(state_, state_->services.size() - 1);
}

std::vector<RecordingNetServices::Service> RecordingNetServices::services() const {
  const MutexLock lock(state_->mutex);
  return state_->services;
}

std::vector<RecordingNetServices::Service> RecordingNetServices::published() const {
  std::vector<Service> found = services();
  std::erase_if(found, [](const Service& service) { return !service.isPublished; });
  return found;
}

namespace {

class ForwardingNetService final : public NetService {
 public:
  ForwardingNetService(std::shared_ptr<NetService> wrapped, std::string type, CallRules& rules)
      : wrapped_(std::move(wrapped)), type_(std::move(type)), rules_(rules) {}

  void setDelegate(NetServiceDelegate* delegate) override {
    ask("", "setDelegate");
    delegate_ = delegate;
    wrapped_->setDelegate(delegate);
  }
  bool setTxtRecordData(const Data& data) override {
    return ask("netService.setTxtRecordData", "setTxtRecordData") == 0 &&
           wrapped_->setTxtRecordData(data);
  }
  void publish() override {
    const int error = ask("netService.publish", "publish");
    if (error == 0) return wrapped_->publish();
    if (delegate_ != nullptr) delegate_->netServiceDidNotPublish(*this, {{"error", error}});
  }
  void stop() override {
    if (ask("", "stop") == 0) wrapped_->stop();
  }

 private:
  int ask(const char* name, const char* operation) {
    return rules_.before({operation, type_, "", name});
  }

  std::shared_ptr<NetService> wrapped_;
  std::string type_;
  CallRules& rules_;
  NetServiceDelegate* delegate_ = nullptr;
};

}  // namespace

std::shared_ptr<NetService> ForwardingNetServices::createService(const std::string& domain,
                                                                 const std::string& type,
                                                                 const std::string& name,
                                                                 std::uint16_t port) {
  ask("", {"createService", type, std::to_string(port)});
  return std::make_shared<ForwardingNetService>(wrapped().createService(domain, type, name, port),
                                                type, rules());
}

}  // namespace paddock
