#include "platform/testing/faulty_net_services.h"

#include <utility>

namespace paddock {

namespace {

class FaultyNetService final : public NetService {
 public:
  FaultyNetService(std::shared_ptr<NetService> wrapped, FaultPlan& plan)
      : wrapped_(std::move(wrapped)), plan_(plan) {}

  void setDelegate(NetServiceDelegate* delegate) override {
    delegate_ = delegate;
    wrapped_->setDelegate(delegate);
  }
  bool setTxtRecordData(const Data& data) override {
    return !plan_.fails("netService.setTxtRecordData") && wrapped_->setTxtRecordData(data);
  }
  void publish() override {
    if (!plan_.fails("netService.publish")) return wrapped_->publish();
    if (delegate_ != nullptr) {
      delegate_->netServiceDidNotPublish(*this, {{"error", plan_.errorNumber()}});
    }
  }
  void stop() override { wrapped_->stop(); }

 private:
  std::shared_ptr<NetService> wrapped_;
  FaultPlan& plan_;
  NetServiceDelegate* delegate_ = nullptr;
};

}  // namespace

std::shared_ptr<NetService> FaultyNetServices::createService(const std::string& domain,
                                                             const std::string& type,
                                                             const std::string& name,
                                                             std::uint16_t port) {
  return std::make_shared<FaultyNetService>(wrapped().createService(domain, type, name, port),
                                            plan_);
}

}  // namespace paddock
