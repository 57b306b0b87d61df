// What quota_records.h promises.
//
// The kernel's records of a volume that keeps some are tested in a guest; here it keeps none.
#include <gmock/gmock.h>

#include <cerrno>
#include <functional>
#include <memory>

#include "platform/linux/files/linux_volume_info.h"
#include "platform/linux/quotas/kernel_quota_control.h"
#include "platform/testing/fake_quotas.h"
#include "platform/testing/fake_volume_info.h"
#include "support/temporary_folder.h"

namespace paddock::contract {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kUsers = 0;
constexpr std::uint32_t kGroups = 1;
constexpr std::uint32_t kAnna = 21001;

struct Subject {
  const char* name;
  bool isReal;
  friend void PrintTo(const Subject& subject, std::ostream* out) { *out << subject.name; }
};

class QuotaRecordsContract : public ::testing::TestWithParam<Subject> {
 protected:
  QuotaRecordsContract() {
    if (GetParam().isReal) {
      volumes_ = std::make_unique<LinuxVolumeInfo>();
      records_ = std::make_unique<KernelQuotaRecords>(*volumes_);
      return;
    }
    auto fake = std::make_unique<FakeVolumeInfo>();
    fake->setError(folder_.path("missing"), ENOENT);
    fake->mount({"/proc", "proc", "proc"});
    volumes_ = std::move(fake);
    records_ = std::make_unique<FakeQuotaRecords>(*volumes_);
  }

  // What each operation answers.
  void expectError(const std::string& path, std::uint32_t type, int error) {
    std::vector<QuotaRecord> list{{.id = 7}};
    EXPECT_EQ(records_->list(path, type, list), error) << path;
    EXPECT_THAT(list, IsEmpty());
    QuotaRecord record{.id = 7};
    EXPECT_EQ(records_->find(path, type, kAnna, record), error) << path;
    EXPECT_EQ(record, QuotaRecord());
    EXPECT_EQ(records_->setLimits(path, type, kAnna, {.bytes = LimitPair{1, 2}}), error) << path;
  }

  TestFolder folder_;
  std::unique_ptr<VolumeInfo> volumes_;
  std::unique_ptr<QuotaRecords> records_;
};

INSTANTIATE_TEST_SUITE_P(QuotaRecords, QuotaRecordsContract,
                         ::testing::Values(Subject{"Fake", false}, Subject{"Kernel", true}),
                         [](const auto& tested) { return tested.param.name; });

TEST_P(QuotaRecordsContract, AVolumeWithoutQuotasIsNotSupported) {
  for (const std::uint32_t type : {kUsers, kGroups}) expectError("/proc", type, ENOTSUP);
}

TEST_P(QuotaRecordsContract, AMissingPathHasNone) {
  expectError(folder_.path("missing"), kUsers, ENOENT);
}

TEST_P(QuotaRecordsContract, UnknownTypesAndPathsWithoutVolumeAreInvalid) {
  expectError("/proc", 2, EINVAL);
  for (const std::string& path :
       {std::string(), std::string("relative"), std::string("/a\0b", 4), std::string("/a/../b")}) {
    expectError(path, kUsers, EINVAL);
  }
}

TEST_P(QuotaRecordsContract, SoftLimitAboveHardLimitIsInvalid) {
  for (const QuotaLimits& limits :
       {QuotaLimits{.bytes = LimitPair{3, 2}}, QuotaLimits{.files = LimitPair{3, 2}}}) {
    EXPECT_EQ(records_->setLimits("/proc", kUsers, kAnna, limits), EINVAL);
  }
  EXPECT_EQ(records_->setLimits("/proc", kUsers, kAnna, {.bytes = LimitPair{3, 0}}), ENOTSUP);
}

// A volume that keeps quotas of users.
class FakeRecords : public ::testing::Test {
 protected:
  FakeRecords() { records_.keep("/", kUsers); }

  FakeVolumeInfo volumes_;
  FakeQuotaRecords records_{volumes_};
};

TEST_F(FakeRecords, LimitsRoundUpToBlocksAndPreserveOthers) {
  EXPECT_EQ(records_.setLimits("/a", kUsers, kAnna, {.bytes = LimitPair{1, 1025}}), 0);
  EXPECT_EQ(records_.setLimits("/a", kUsers, kAnna, {.files = LimitPair{5, 6}}), 0);
  QuotaRecord record;
  EXPECT_EQ(records_.find("/b", kUsers, kAnna, record), 0);
  EXPECT_EQ(
      record,
      (QuotaRecord{
          .id = kAnna, .softBytes = 1024, .hardBytes = 2048, .softFiles = 5, .hardFiles = 6}));
  EXPECT_EQ(records_.find("/", kGroups, kAnna, record), ENOTSUP);
}

TEST_F(FakeRecords, IdsAreListedInTheirOrder) {
  records_.add("/", kUsers, {.id = 9, .usedBytes = 1});
  records_.add("/", kUsers, {.id = 3, .usedFiles = 1});
  std::vector<QuotaRecord> list;
  EXPECT_EQ(records_.list("/", kUsers, list), 0);
  EXPECT_THAT(list, ElementsAre(QuotaRecord{.id = 3, .usedFiles = 1},
                                QuotaRecord{.id = 9, .usedBytes = 1}));
}

TEST_F(FakeRecords, AnUnknownIdUsesNothing) {
  QuotaRecord record;
  EXPECT_EQ(records_.find("/", kUsers, 4, record), 0);
  EXPECT_EQ(record, QuotaRecord{.id = 4});
}

}  // namespace
}  // namespace paddock::contract
