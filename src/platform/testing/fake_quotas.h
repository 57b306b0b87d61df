// Doubles of the services that switch quotas (quota_control.h) and tell what they count and limit
// (quota_records.h), and a wrapper of the first, through which tests let calls fail and see them.
#pragma once

#include <cerrno>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/quota_control.h"
#include "platform/quota_records.h"
#include "platform/testing/call_rules.h"
#include "platform/volume_info.h"

namespace paddock {

// Quota states that are kept in memory, per volume and type.
class FakeQuotaControl : public QuotaControl {
 public:
  struct Call {
    std::string path;
    std::uint32_t commandWord = 0;
    std::uint32_t id = 0;
    std::string quotaFile;  // empty for a query
    friend bool operator==(const Call&, const Call&) = default;
  };

  // `volumes` must outlive this object.
  explicit FakeQuotaControl(VolumeInfo& volumes) : volumes_(volumes) {}

  // Quota files are looked up in the real file system.
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

// Quota records that are kept in memory, per volume and type.
class FakeQuotaRecords final : public QuotaRecords {
 public:
  // `volumes` outlives this object.
  explicit FakeQuotaRecords(VolumeInfo& volumes) : volumes_(volumes) {}

  // From now on the volume mounted there keeps quotas of that type.
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

// A failure is the errno, nothing switched and the state 0. Operation: quotactl (subject: the path,
// detail: the command word in decimal).
class ForwardingQuotaControl final : public Forwarder<QuotaControl> {
 public:
  using Forwarder::Forwarder;
  int quotactl(const std::string& path, std::uint32_t commandWord, std::uint32_t id,
               const QuotaArgument& argument) override {
    const int error = ask("quotaControl.quotactl", {"quotactl", path, std::to_string(commandWord)});
    if (error == 0) return wrapped().quotactl(path, commandWord, id, argument);
    if (std::uint32_t* const* state = std::get_if<std::uint32_t*>(&argument)) **state = 0;
    return error;
  }
};

}  // namespace paddock
