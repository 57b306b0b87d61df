#include "platform/linux/dnssd/silent_net_services.h"

#include "platform/txt_record.h"

namespace paddock {

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
