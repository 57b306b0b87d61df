// What net_service.h promises, wherever the services are advertised. The Avahi daemon cannot be
// reached here: what others see on the network is in tests/dnssd.
#include <gmock/gmock.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/linux/dnssd/linux_net_services.h"
#include "platform/testing/recording_net_services.h"

namespace paddock::contract {
namespace {

using ::testing::Each;
using Lines = std::vector<std::string>;

constexpr std::uint16_t kPort = 311;
constexpr const char* kType = "_adisk._tcp";

class NotingDelegate : public NetServiceDelegate {
 public:
  void netServiceWillPublish(NetService& sender) override { note("will publish", sender); }
  void netServiceDidNotPublish(NetService& sender, const Dictionary& errors) override {
    const std::string* error = errors.string("error");
    note(error != nullptr && !error->empty() ? "did not publish" : "no error is named", sender);
  }
  void netServiceDidStop(NetService& sender) override { note("did stop", sender); }

  // The notifications received once there are `count` of them, or those received so far on a
  // timeout.
  Lines waitForLines(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(60), [&] { return lines_.size() >= count; });
    return lines_;
  }
  Lines lines() { return waitForLines(0); }

  // Called each time, before it is noted.
  std::function<void(NetService&)> onCall;

 private:
  void note(const std::string& line, NetService& sender) {
    if (onCall) onCall(sender);
    const std::lock_guard lock(mutex_);
    lines_.push_back(line);
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  Lines lines_;
};

struct Subject {
  const char* name;
  std::function<std::unique_ptr<NetServices>()> make;
  bool tells;  // whether delegates are notified
  friend void PrintTo(const Subject& subject, std::ostream* out) { *out << subject.name; }
};

std::unique_ptr<NetServices> makeAvahi() {
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);  // no thread runs yet
  return std::make_unique<AvahiNetServices>(AvahiNetServicesOptions{});
}

class NetServicesContract : public ::testing::TestWithParam<Subject> {
 protected:
  std::shared_ptr<NetService> service(const std::string& type = kType, std::uint16_t port = kPort) {
    auto made = services_->createService("", type, "", port);
    made->setDelegate(&delegate_);
    return made;
  }
  // The notifications of delegates, by services that send any.
  Lines told(Lines lines) const { return GetParam().tells ? std::move(lines) : Lines{}; }

  NotingDelegate delegate_;
  std::unique_ptr<NetServices> services_ = GetParam().make();
};

INSTANTIATE_TEST_SUITE_P(
    NetServices, NetServicesContract,
    ::testing::Values(
        Subject{"Double", [] { return std::make_unique<RecordingNetServices>(); }, true},
        Subject{"Silent", [] { return std::make_unique<SilentNetServices>(); }, false},
        Subject{"Avahi", makeAvahi, true}),
    [](const auto& tested) { return tested.param.name; });

TEST_P(NetServicesContract, AServiceIsMadeOfAnyArguments) {
  for (const char* text : {"", "_adisk._tcp", "\xff", "a longer text with = and \x01"})
    for (const int port : {0, 311, 65535})
      EXPECT_NE(services_->createService(text, text, text, static_cast<std::uint16_t>(port)),
                nullptr);
}

TEST_P(NetServicesContract, DataThatIsNoTxtRecordIsRefused) {
  const auto made = service();
  EXPECT_FALSE(made->setTxtRecordData(Data{{5, 'a'}}));
  made->publish();
  EXPECT_FALSE(made->setTxtRecordData(Data{{1}}));
}

TEST_P(NetServicesContract, TxtRecordIsAcceptedBeforeAndAfterPublication) {
  const auto made = service();
  EXPECT_TRUE(made->setTxtRecordData({}));
  EXPECT_TRUE(made->setTxtRecordData(Data{{3, 'a', '=', '1'}}));
  made->publish();
  EXPECT_TRUE(made->setTxtRecordData(Data{{3, 'a', '=', '2', 0}}));
}

TEST_P(NetServicesContract, TheDelegateIsToldOfPublicationAndEnd) {
  const auto made = service();
  made->publish();
  delegate_.waitForLines(told({"will publish"}).size());
  made->stop();
  const Lines expected = told({"will publish", "did stop"});
  EXPECT_EQ(delegate_.waitForLines(expected.size()), expected);
}

TEST_P(NetServicesContract, StoppedServiceCanBePublishedAgain) {
  const auto made = service();
  for (int round = 1; round <= 3; ++round) {
    made->publish();
    const auto calls = static_cast<std::size_t>(2 * round - 1);
    delegate_.waitForLines(GetParam().tells ? calls : 0);
    made->stop();
  }
  const Lines expected =
      told({"will publish", "did stop", "will publish", "did stop", "will publish", "did stop"});
  EXPECT_EQ(delegate_.waitForLines(expected.size()), expected);
}

TEST_P(NetServicesContract, WhatIsPublishedAlreadyIsNotPublishedTwice) {
  const auto made = service();
  made->publish();
  made->publish();
  delegate_.waitForLines(told({"will publish"}).size());
  made->publish();
  made->stop();
  const Lines expected = told({"will publish", "did stop"});
  EXPECT_EQ(delegate_.waitForLines(expected.size()), expected);
}

TEST_P(NetServicesContract, StoppingUnpublishedServiceSkipsDelegate) {
  const auto first = service();
  first->stop();
  const auto second = service();
  second->publish();
  EXPECT_EQ(delegate_.waitForLines(told({"will publish"}).size()), told({"will publish"}));
}

TEST_P(NetServicesContract, UnpublishableServiceIsReportedToDelegate) {
  service("no type")->publish();  // destroyed at once, which is no fault
  const auto wrongType = service("_nonsense");
  wrongType->publish();
  delegate_.waitForLines(told({"did not publish"}).size());
  const auto noPort = service(kType, 0);
  noPort->publish();
  const Lines lines = delegate_.waitForLines(told({"did not publish", "did not publish"}).size());
  EXPECT_THAT(lines, Each("did not publish"));
  EXPECT_EQ(lines.empty(), !GetParam().tells);
}

TEST_P(NetServicesContract, UnpublishableServiceLetsOthersPublish) {
  const auto wrong = service("_nonsense");
  wrong->publish();
  delegate_.waitForLines(told({"did not publish"}).size());
  const auto right = service();
  right->publish();
  const Lines expected = told({"did not publish", "will publish"});
  EXPECT_EQ(delegate_.waitForLines(expected.size()), expected);
}

TEST_P(NetServicesContract, WithoutADelegateNobodyIsTold) {
  const auto made = service();
  made->setDelegate(nullptr);
  made->publish();
  made->stop();
  const auto other = service();
  other->publish();
  const Lines expected = told({"will publish"});
  EXPECT_EQ(delegate_.waitForLines(expected.size()), expected);
}

TEST_P(NetServicesContract, AServiceIsDestroyedWhileItIsPublished) {
  for (int round = 0; round < 50; ++round) {
    NotingDelegate delegate;
    const auto made = services_->createService("", kType, "", kPort);
    made->setDelegate(&delegate);
    made->publish();
  }
}

TEST_P(NetServicesContract, ADestroyedServiceCallsNobody) {
  NotingDelegate delegate;
  auto made = services_->createService("", kType, "", kPort);
  made->setDelegate(&delegate);
  made->publish();
  delegate.waitForLines(told({"will publish"}).size());
  made.reset();
  const Lines atTheEnd = delegate.lines();
  // Later notifications about another service were not delayed by this one.
  const auto other = service();
  other->publish();
  delegate_.waitForLines(told({"will publish"}).size());
  EXPECT_EQ(delegate.lines(), atTheEnd);
}

TEST_P(NetServicesContract, ADelegateMayUseItsService) {
  delegate_.onCall = [](NetService& sender) {
    sender.setTxtRecordData(Data{{3, 'a', '=', '2'}});
    sender.stop();
    sender.setDelegate(nullptr);
  };
  const auto made = service();
  made->publish();
  // The double reports the end within the call, so the order is unspecified.
  const Lines lines = delegate_.waitForLines(told({"will publish"}).size());
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "will publish"), GetParam().tells ? 1 : 0);
}

TEST_P(NetServicesContract, ServicesMayOutliveWhatMadeThem) {
  const auto made = service();
  made->publish();
  services_.reset();
  EXPECT_TRUE(made->setTxtRecordData(Data{{3, 'a', '=', '2'}}));
  made->stop();
  made->publish();
}

TEST_P(NetServicesContract, EveryThreadMayHaveServices) {
  std::vector<std::thread> threads;
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([this] {
      for (int round = 0; round < 50; ++round) {
        NotingDelegate delegate;
        const auto made = services_->createService("", kType, "", kPort);
        made->setDelegate(&delegate);
        made->publish();
        made->setTxtRecordData(Data{{3, 'a', '=', '1'}});
        if (round % 2 == 0) made->stop();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const auto last = service();
  last->publish();
  EXPECT_EQ(delegate_.waitForLines(told({"will publish"}).size()), told({"will publish"}));
}

}  // namespace
}  // namespace paddock::contract
