// A resolver that answers in time.
//
// The resolver behind it runs on a thread of its own, one query at a time. A query that is not
// answered within the patience is ETIMEDOUT, and goes on by itself; until it has ended every other
// query is ETIMEDOUT at once, so that a resolver that hangs costs one wait and one thread. One that
// is slow costs no more than the allowance: when that is used up, queries are ETIMEDOUT at once
// until the stretch of time ends.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/linux/acl/sid_resolver.h"

namespace paddock {

class BoundedSidResolver final : public SidResolver {
 public:
  // How long callers are kept waiting altogether, in every stretch of so long.
  struct Allowance {
    std::chrono::milliseconds waiting{0};
    std::chrono::milliseconds stretch{0};
  };

  // Without an allowance each query has the whole patience.
  BoundedSidResolver(std::shared_ptr<SidResolver> resolver, std::chrono::milliseconds patience,
                     std::optional<Allowance> allowance = std::nullopt);
  // Does not wait for a query that is late: it keeps what it needs alive.
  ~BoundedSidResolver() override;

  int principalOf(const nt_acl::Sid& sid, Principal& principal) override;

 private:
  struct Desk;

  int ask(std::unique_lock<std::mutex>& lock, const nt_acl::Sid& sid, Principal& principal);

  const std::shared_ptr<Desk> desk_;
  const std::chrono::milliseconds patience_;
  const std::optional<Allowance> allowance_;
};

}  // namespace paddock
