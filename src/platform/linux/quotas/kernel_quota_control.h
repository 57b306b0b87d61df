// Quotas that the kernel keeps and enforces; see quotactl(2).
//
// File systems with quotas of their own (XFS, ext4 with the feature "quota") are switched between
// counting alone and enforcing; others use the kernel's own file, aquota.user or aquota.group in
// the volume's root folder, when root owns one. The quota file that a request names has to be
// there, and is not the kernel's.
#pragma once

#include "platform/quota_control.h"
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

}  // namespace paddock
