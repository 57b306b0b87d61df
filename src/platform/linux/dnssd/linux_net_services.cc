#include "platform/linux/dnssd/linux_net_services.h"

#include <string>
#include <vector>

#include "platform/linux/dnssd/avahi_publisher.h"
#include "platform/net_service.h"

namespace paddock {

namespace {

using dns_sd::AvahiPublisher;
using dns_sd::Order;

class AvahiNetService final : public NetService {
 public:
  AvahiNetService(std::shared_ptr<AvahiPublisher> publisher,
                  const dns_sd::ServiceDescription& description)
      : publisher_(std::move(publisher)), order_(std::make_shared<Order>(description, this)) {}
  AvahiNetService(const AvahiNetService&) = delete;
  AvahiNetService& operator=(const AvahiNetService&) = delete;
  ~AvahiNetService() override {
    publisher_->orders().setDelegate(*order_, nullptr);
    publisher_->orders().stop(order_);
  }

  void setDelegate(NetServiceDelegate* delegate) override {
    publisher_->orders().setDelegate(*order_, delegate);
  }

  bool setTxtRecordData(const Data& data) override {
    std::vector<std::string> strings;
    if (!stringsOfTxtRecord(data, strings)) return false;
    publisher_->orders().setTxt(*order_, std::make_shared<const Data>(data));
    return true;
  }

  void publish() override { publisher_->publish(order_); }
  void stop() override { publisher_->orders().stop(order_); }

 private:
  const std::shared_ptr<AvahiPublisher> publisher_;
  const std::shared_ptr<Order> order_;
};

}  // namespace

AvahiNetServices::AvahiNetServices(AvahiNetServicesOptions options)
    : publisher_(std::make_shared<AvahiPublisher>(
          options.logger, BackOff(options.firstPause, options.longestPause))) {}

AvahiNetServices::~AvahiNetServices() { publisher_->close(); }

std::shared_ptr<NetService> AvahiNetServices::createService(const std::string& domain,
                                                            const std::string& type,
                                                            const std::string& name,
                                                            std::uint16_t port) {
  return std::make_shared<AvahiNetService>(publisher_,
                                           dns_sd::ServiceDescription{domain, type, name, port});
}

namespace {

class SilentNetService final : public NetService {
 public:
  void setDelegate(NetServiceDelegate*) override {}
  bool setTxtRecordData(const Data& data) override {
    std::vector<std::string> strings;
    return stringsOfTxtRecord(data, strings);
  }
  void publish() override {}
  void stop() override {}
};

}  // namespace

std::shared_ptr<NetService> SilentNetServices::createService(const std::string&, const std::string&,
                                                             const std::string&, std::uint16_t) {
  return std::make_shared<SilentNetService>();
}

}  // namespace paddock
