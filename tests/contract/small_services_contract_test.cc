// What machine_information.h and shared_file_list.h promise.
#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <set>

#include "platform/linux/directory/linux_shared_file_list.h"
#include "platform/linux/process/linux_machine_information.h"
#include "platform/testing/fake_machine_information.h"
#include "platform/testing/in_memory_shared_file_list.h"

namespace paddock::contract {
namespace {

// A service, named after its implementation.
template <typename Service>
struct Subject {
  const char* name;
  std::function<std::unique_ptr<Service>()> make;
  friend void PrintTo(const Subject& subject, std::ostream* out) { *out << subject.name; }
};

template <typename Service>
class ServiceContract : public ::testing::TestWithParam<Subject<Service>> {
 protected:
  std::unique_ptr<Service> service_ = this->GetParam().make();
};

template <typename Service, typename Double, typename Linux>
auto doubleAndLinux() {
  return ::testing::Values(Subject<Service>{"Double", [] { return std::make_unique<Double>(); }},
                           Subject<Service>{"Linux", [] { return std::make_unique<Linux>(); }});
}

constexpr auto kSubjectName = [](const auto& tested) { return tested.param.name; };

using HostNameContract = ServiceContract<HostName>;
INSTANTIATE_TEST_SUITE_P(HostName, HostNameContract,
                         (doubleAndLinux<HostName, FakeHostName, LinuxHostName>()), kSubjectName);

TEST_P(HostNameContract, GivesAName) {
  std::string name;
  EXPECT_EQ(service_->gethostname(name), 0);
  EXPECT_NE(name, "");
  EXPECT_EQ(name.find('\0'), std::string::npos);
}

using ClockContract = ServiceContract<Clock>;
INSTANTIATE_TEST_SUITE_P(Clock, ClockContract, (doubleAndLinux<Clock, FakeClock, LinuxClock>()),
                         kSubjectName);

TEST_P(ClockContract, NeverGoesBack) {
  auto last = service_->monotonicNow();
  for (int reading = 0; reading < 1000; ++reading) {
    const auto next = service_->monotonicNow();
    ASSERT_LE(last, next);
    last = next;
  }
}

TEST_P(ClockContract, TheTimeOfDayIsOfThisCentury) {
  EXPECT_GT(service_->now().time_since_epoch(), std::chrono::hours(24 * 365 * 50));
}

using UuidSourceContract = ServiceContract<UuidSource>;
INSTANTIATE_TEST_SUITE_P(UuidSource, UuidSourceContract,
                         (doubleAndLinux<UuidSource, FakeUuidSource, LinuxUuidSource>()),
                         kSubjectName);

TEST_P(UuidSourceContract, GivesRandomUuidsOfVersionFour) {
  std::set<Guid> uuids;
  for (int call = 0; call < 1000; ++call) {
    const Guid uuid = service_->newUuid();
    EXPECT_EQ(uuid.bytes[6] >> 4U, 4U);
    EXPECT_EQ(uuid.bytes[8] >> 6U, 2U);
    uuids.insert(uuid);
  }
  EXPECT_EQ(uuids.size(), 1000U);
}

using SharedFileListContract = ServiceContract<SharedFileLists>;
INSTANTIATE_TEST_SUITE_P(
    SharedFileList, SharedFileListContract,
    (doubleAndLinux<SharedFileLists, InMemorySharedFileLists, LinuxSharedFileLists>()),
    kSubjectName);

TEST_P(SharedFileListContract, InsertedItemResolvesToUrlAndIsRemovable) {
  const auto list = service_->createSharePointList();
  ASSERT_NE(list, nullptr);
  EXPECT_TRUE(list->snapshot().empty());
  const auto item = list->insertLast("file:///srv/a");
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->resolve(kResolveQuietly), "file:///srv/a");
  EXPECT_EQ(list->remove(item), kSuccess);
  EXPECT_TRUE(list->snapshot().empty());
}

TEST_P(SharedFileListContract, EveryItemOfASnapshotCanBeRemoved) {
  const auto list = service_->createSharePointList();
  list->insertLast("file:///srv/a");
  list->insertLast("file:///srv/b");
  for (const auto& item : list->snapshot()) {
    EXPECT_TRUE(item->resolve(kResolveQuietly));
    EXPECT_EQ(list->remove(item), kSuccess);
  }
  EXPECT_TRUE(list->snapshot().empty());
}

}  // namespace
}  // namespace paddock::contract
