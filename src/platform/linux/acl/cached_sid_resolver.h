// A resolver that asks the one behind it once in a while for each SID, whatever the answer is: who
// a SID is changes seldom, and one that could not be asked is not asked for every entry.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>

#include "platform/clock.h"
#include "platform/linux/acl/sid_resolver.h"

namespace paddock {

class CachedSidResolver final : public SidResolver {
 public:
  // How many answers are kept; the next one drops them all.
  static constexpr std::size_t kCapacity = 16384;

  CachedSidResolver(std::unique_ptr<SidResolver> resolver, std::shared_ptr<Clock> clock,
                    std::chrono::seconds lifetime);

  int principalOf(const nt_acl::Sid& sid, Principal& principal) override;

 private:
  struct Answer {
    int error = 0;
    Principal principal;
    std::chrono::steady_clock::time_point end;
  };

  bool find(const nt_acl::Sid& sid, Answer& answer);
  void keep(const nt_acl::Sid& sid, const Answer& answer);

  const std::unique_ptr<SidResolver> resolver_;
  const std::shared_ptr<Clock> clock_;
  const std::chrono::seconds lifetime_;
  std::mutex mutex_;
  std::map<nt_acl::Sid, Answer> answers_;
};

}  // namespace paddock
