// A resolver that answers in time.
//
// The resolver behind it runs on a thread of its own, one query at a time. A query that is not
// answered within the patience is ETIMEDOUT, and goes on by itself; until it has ended every other
// query is ETIMEDOUT at once, so that a resolver that hangs costs one wait and one thread.
#pragma once

#include <chrono>
#include <memory>

#include "platform/linux/sid_resolver.h"

namespace paddock {

class BoundedSidResolver final : public SidResolver {
 public:
  BoundedSidResolver(std::shared_ptr<SidResolver> resolver, std::chrono::milliseconds patience);
  // Does not wait for a query that is late: it keeps what it needs alive.
  ~BoundedSidResolver() override;

  int principalOf(const nt_acl::Sid& sid, Principal& principal) override;

 private:
  struct Desk;
  const std::shared_ptr<Desk> desk_;
  const std::chrono::milliseconds patience_;
};

}  // namespace paddock
