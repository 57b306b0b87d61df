#include "platform/testing/recording_net_services.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/net_service.h"
#include "platform/testing/fault_plan.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class Delegate : public NetServiceDelegate {
 public:
  void netServiceWillPublish(NetService&) override { told.emplace_back("willPublish"); }
  void netServiceDidNotPublish(NetService&, const Dictionary&) override {
    told.emplace_back("didNotPublish");
  }
  void netServiceDidStop(NetService&) override { told.emplace_back("didStop"); }

  std::vector<std::string> told;
};

class NetServiceRecording : public ::testing::Test {
 protected:
  std::shared_ptr<NetService> make(const std::string& type = "_adisk._tcp",
                                   std::uint16_t port = 311) {
    auto service = services_.createService("", type, "name", port);
    service->setDelegate(&delegate_);
    return service;
  }

  Delegate delegate_;
  RecordingNetServices services_;
};

TEST_F(NetServiceRecording, ServiceIsKeptUnchangedAndPublishedOnRequest) {
  const auto service = make();
  ASSERT_THAT(services_.services(), SizeIs(1));
  EXPECT_THAT(services_.published(), IsEmpty());
  service->publish();
  ASSERT_THAT(services_.published(), SizeIs(1));
  const RecordingNetServices::Service kept = services_.published().front();
  EXPECT_EQ(kept.domain, "");
  EXPECT_EQ(kept.type, "_adisk._tcp");
  EXPECT_EQ(kept.name, "name");
  EXPECT_EQ(kept.port, 311);
  EXPECT_EQ(kept.delegate, &delegate_);
  EXPECT_FALSE(kept.txtRecord);
  EXPECT_THAT(delegate_.told, ElementsAre("willPublish"));
}

TEST_F(NetServiceRecording, StoppedServiceCanBePublishedAgain) {
  const auto service = make();
  service->publish();
  service->publish();
  service->stop();
  service->stop();
  EXPECT_THAT(services_.published(), IsEmpty());
  service->publish();
  EXPECT_THAT(services_.published(), SizeIs(1));
  EXPECT_THAT(delegate_.told, ElementsAre("willPublish", "didStop", "willPublish"));
}

TEST_F(NetServiceRecording, ReleasedServiceIsWithdrawnWithoutCallback) {
  make()->publish();
  EXPECT_THAT(services_.published(), IsEmpty());
  EXPECT_TRUE(services_.services().front().isGone);
  EXPECT_THAT(delegate_.told, ElementsAre("willPublish"));
}

TEST_F(NetServiceRecording, PublishingInvalidServiceReportsFailure) {
  for (const auto& service :
       {make("adisk._tcp"), make("_adisk"), make("_._tcp"), make(""), make("_adisk._tcp", 0)}) {
    EXPECT_THAT(delegate_.told, IsEmpty());
    service->publish();
    EXPECT_THAT(delegate_.told, ElementsAre("didNotPublish"));
    delegate_.told.clear();
  }
  EXPECT_THAT(services_.published(), IsEmpty());
}

TEST_F(NetServiceRecording, TxtRecordIsKeptAndInvalidOneRefused) {
  const auto service = make();
  const Data data = dataFromTxtRecordDictionary({{"sys", "x"}});
  EXPECT_TRUE(service->setTxtRecordData(data));
  EXPECT_FALSE(service->setTxtRecordData(Data{{5, 'a'}}));
  EXPECT_EQ(services_.services().front().txtRecord, data);
}

TEST_F(NetServiceRecording, FailingServiceIsNotPublishedAndReportsFailure) {
  FaultPlan plan(2);
  plan.keepFailing();
  ForwardingNetServices faulty(services_, plan);
  const auto service = faulty.createService("", "_adisk._tcp", "", 311);
  service->setDelegate(&delegate_);
  const Data data = dataFromTxtRecordDictionary({{"sys", "x"}});
  EXPECT_TRUE(service->setTxtRecordData(data));
  EXPECT_FALSE(service->setTxtRecordData(Data{}));
  service->publish();
  EXPECT_THAT(delegate_.told, ElementsAre("didNotPublish"));
  EXPECT_THAT(services_.published(), IsEmpty());
  EXPECT_EQ(services_.services().front().txtRecord, data);
  EXPECT_EQ(plan.failedCall(), "netService.setTxtRecordData");
}

}  // namespace
}  // namespace paddock
