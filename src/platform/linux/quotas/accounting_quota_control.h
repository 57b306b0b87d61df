// Quotas that are seen and not enforced: whether they are on is kept in a file, for volumes of any
// kind. docs/formats/quota.md describes the file.
#pragma once

#include <string>
#include <utility>

#include "base/mutex.h"
#include "platform/linux/files/linux_text_files.h"
#include "platform/quota_control.h"
#include "platform/volume_info.h"

namespace paddock {

// A volume is known by its mount point. Besides the errnos of the interface those of reading and
// writing the file.
class AccountingQuotaControl : public QuotaControl {
 public:
  // `volumes` outlives this object.
  AccountingQuotaControl(VolumeInfo& volumes, std::string statePath)
      : volumes_(volumes), statePath_(std::move(statePath)) {}

  int quotactl(const std::string& path, std::uint32_t commandWord, std::uint32_t id,
               const QuotaArgument& argument) override;

 private:
  VolumeInfo& volumes_;
  const std::string statePath_;
  LinuxTextFiles files_;
  Mutex mutex_;
};

}  // namespace paddock
