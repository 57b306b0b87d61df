// Quotas that the kernel keeps and enforces; see quotactl(2).
//
// File systems with quotas of their own (XFS, ext4 with the feature "quota") are switched between
// counting alone and enforcing; others use the kernel's own file, aquota.user or aquota.group in
// the volume's root folder, when root owns one. The quota file that a request names has to be
// there, and is not the kernel's.
#pragma once

#include "platform/quota_control.h"
#include "platform/quota_records.h"
#include "platform/volume_info.h"

namespace paddock {

class KernelQuotaControl : public QuotaControl {
 public:
  // `volumes` outlives this object.
  explicit KernelQuotaControl(VolumeInfo& volumes) : volumes_(volumes) {}

  int quotactl(const std::string& path, std::uint32_t commandWord, std::uint32_t id,
               const QuotaArgument& argument) override;

 private:
  VolumeInfo& volumes_;
};

// Usage and limits that the kernel keeps, on every file system with quotas (ext4 and XFS among
// them).
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
