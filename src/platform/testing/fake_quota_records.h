// Quota records that are kept in memory, per volume and type.
#pragma once

#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/quota_control.h"
#include "platform/quota_records.h"
#include "platform/volume_info.h"

namespace paddock {

// A volume keeps the types that `keep` names.
class FakeQuotaRecords final : public QuotaRecords {
 public:
  // `volumes` outlives this object.
  explicit FakeQuotaRecords(VolumeInfo& volumes) : volumes_(volumes) {}

  void keep(const std::string& mountPoint, std::uint32_t type) { kept_.insert({mountPoint, type}); }
  void add(const std::string& mountPoint, std::uint32_t type, const QuotaRecord& record) {
    keep(mountPoint, type);
    records_[{mountPoint, type}][record.id] = record;
  }
  // The error of every operation from now on; 0 for none.
  void setError(int error) { error_ = error; }

  int list(const std::string& path, std::uint32_t type,
           std::vector<QuotaRecord>& records) override {
    records.clear();
    Key key;
    if (const int error = findKey(path, type, key); error != 0) return error;
    for (const auto& [id, record] : records_[key]) records.push_back(record);
    return 0;
  }
  int find(const std::string& path, std::uint32_t type, std::uint32_t id,
           QuotaRecord& record) override {
    record = {};
    Key key;
    if (const int error = findKey(path, type, key); error != 0) return error;
    const auto found = records_[key].find(id);
    if (found != records_[key].end()) record = found->second;
    record.id = id;
    return 0;
  }
  int setLimits(const std::string& path, std::uint32_t type, std::uint32_t id,
                const QuotaLimits& limits) override {
    if (type > 1 || !areLimits(limits)) return EINVAL;
    Key key;
    if (const int error = findKey(path, type, key); error != 0) return error;
    QuotaRecord& record = records_[key][id];
    record.id = id;
    if (limits.bytes) {
      record.softBytes = wholeBlocks(limits.bytes->soft);
      record.hardBytes = wholeBlocks(limits.bytes->hard);
    }
    if (limits.files) {
      record.softFiles = limits.files->soft;
      record.hardFiles = limits.files->hard;
    }
    return 0;
  }

 private:
  using Key = std::pair<std::string, std::uint32_t>;

  static std::uint64_t wholeBlocks(std::uint64_t bytes) {
    return (bytes + kQuotaBlock - 1) / kQuotaBlock * kQuotaBlock;
  }
  int findKey(const std::string& path, std::uint32_t type, Key& key) {
    if (type > 1) return EINVAL;
    if (error_ != 0) return error_;
    if (const int error = quotaPathError(path); error != 0) return error;
    MountedVolume volume;
    if (const int error = volumes_.statfs(path, volume); error != 0) return error;
    key = {volume.f_mntonname, type};
    return kept_.contains(key) ? 0 : ENOTSUP;
  }

  VolumeInfo& volumes_;
  std::set<Key> kept_;
  std::map<Key, std::map<std::uint32_t, QuotaRecord>> records_;
  int error_ = 0;
};

}  // namespace paddock
