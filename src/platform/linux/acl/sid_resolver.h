// Maps SIDs of other systems to users and groups of this one.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>

#include "base/guid.h"
#include "base/mutex.h"
#include "base/timed_cache.h"
#include "platform/linux/acl/nt_acl.h"
#include "platform/machine_information.h"

namespace paddock {

class SidResolver {
 public:
  virtual ~SidResolver() = default;
  // Returns 0 with the user or group; ENOENT when the SID maps to none; another errno when the
  // lookup fails. Thread-safe.
  virtual int principalOf(const nt_acl::Sid& sid, Principal& principal) = 0;
};

// A resolver with bounded response time.
//
// The resolver behind it runs on a thread of its own, one query at a time. A query that is not
// answered within the patience returns ETIMEDOUT, and continues in the background; until it has
// ended every other query returns ETIMEDOUT at once, so that a hanging resolver costs one wait and
// one thread. A slow one costs no more than the allowance: once that is used up, queries return
// ETIMEDOUT at once until the interval ends.
class BoundedSidResolver final : public SidResolver {
 public:
  // Total waiting time of callers per interval.
  struct Allowance {
    std::chrono::milliseconds waiting{0};
    std::chrono::milliseconds stretch{0};
  };

  // Without an allowance each query has the whole patience.
  BoundedSidResolver(std::shared_ptr<SidResolver> resolver, std::chrono::milliseconds patience,
                     std::optional<Allowance> allowance = std::nullopt);
  // Does not wait for a late query, which keeps what it needs alive.
  ~BoundedSidResolver() override;

  int principalOf(const nt_acl::Sid& sid, Principal& principal) override;

 private:
  struct Desk;

  const std::shared_ptr<Desk> desk_;
  const std::chrono::milliseconds patience_;
  const std::optional<Allowance> allowance_;
};

// A resolver that caches the answers of another one for a while, failures included: mappings change
// seldom, and an unavailable resolver is not queried for every entry.
class CachedSidResolver final : public SidResolver {
 public:
  // Maximum number of entries.
  static constexpr std::size_t kCapacity = 16384;

  CachedSidResolver(std::unique_ptr<SidResolver> resolver, std::shared_ptr<Clock> clock,
                    std::chrono::seconds lifetime);

  int principalOf(const nt_acl::Sid& sid, Principal& principal) override;

 private:
  struct Answer {
    int error = 0;
    Principal principal;
  };

  bool find(const nt_acl::Sid& sid, Answer& answer) PADDOCK_EXCLUDES(mutex_);

  const std::unique_ptr<SidResolver> resolver_;
  const std::shared_ptr<Clock> clock_;
  Mutex mutex_;
  TimedCache<nt_acl::Sid, Answer> answers_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock
