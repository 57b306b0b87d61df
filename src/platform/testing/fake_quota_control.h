// Quota states that are kept in memory, per volume and type.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/quota_control.h"
#include "platform/volume_info.h"

namespace paddock {

class FakeQuotaControl : public QuotaControl {
 public:
  struct Call {
    std::string path;
    std::uint32_t commandWord = 0;
    std::uint32_t id = 0;
    std::string quotaFile;  // empty for a query
    friend bool operator==(const Call&, const Call&) = default;
  };

  // Quota files are looked for in the real file system. `volumes` outlives this object.
  explicit FakeQuotaControl(VolumeInfo& volumes) : volumes_(volumes) {}

  int quotactl(const std::string& path, std::uint32_t commandWord, std::uint32_t id,
               const QuotaArgument& argument) override;

  // The state of users' quotas on the volume mounted there.
  bool isOn(const std::string& mountPoint) const { return on_.contains({mountPoint, 0}); }
  void setOn(const std::string& mountPoint) { on_.insert({mountPoint, 0}); }
  // The error of a command word from now on; 0 for none.
  void setError(std::uint32_t commandWord, int error) { errors_[commandWord] = error; }

  const std::vector<Call>& calls() const { return calls_; }

 private:
  VolumeInfo& volumes_;
  std::set<std::pair<std::string, std::uint32_t>> on_;  // mount point, type
  std::map<std::uint32_t, int> errors_;
  std::vector<Call> calls_;
};

}  // namespace paddock
