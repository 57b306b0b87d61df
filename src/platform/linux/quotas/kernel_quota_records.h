// Usage and limits that the kernel keeps, on every file system with quotas (ext4 and XFS among
// them).
#pragma once

#include "platform/quota_records.h"
#include "platform/volume_info.h"

namespace paddock {

class KernelQuotaRecords final : public QuotaRecords {
 public:
  // `volumes` outlives this object.
  explicit KernelQuotaRecords(VolumeInfo& volumes) : volumes_(volumes) {}

  int list(const std::string& path, std::uint32_t type, std::vector<QuotaRecord>& records) override;
  int find(const std::string& path, std::uint32_t type, std::uint32_t id,
           QuotaRecord& record) override;
  int setLimits(const std::string& path, std::uint32_t type, std::uint32_t id,
                const QuotaLimits& limits) override;

 private:
  VolumeInfo& volumes_;
};

}  // namespace paddock
