#include "platform/linux/acl/cached_sid_resolver.h"

namespace paddock {

CachedSidResolver::CachedSidResolver(std::unique_ptr<SidResolver> resolver,
                                     std::shared_ptr<Clock> clock, std::chrono::seconds lifetime)
    : resolver_(std::move(resolver)), clock_(std::move(clock)), lifetime_(lifetime) {}

bool CachedSidResolver::find(const nt_acl::Sid& sid, Answer& answer) {
  const std::lock_guard lock(mutex_);
  const auto found = answers_.find(sid);
  if (found == answers_.end() || found->second.end <= clock_->monotonicNow()) return false;
  answer = found->second;
  return true;
}

void CachedSidResolver::keep(const nt_acl::Sid& sid, const Answer& answer) {
  const std::lock_guard lock(mutex_);
  if (answers_.size() >= kCapacity) answers_.clear();
  answers_[sid] = answer;
}

int CachedSidResolver::principalOf(const nt_acl::Sid& sid, Principal& principal) {
  Answer answer;
  if (!find(sid, answer)) {
    answer.error = resolver_->principalOf(sid, answer.principal);
    answer.end = clock_->monotonicNow() + lifetime_;
    keep(sid, answer);
  }
  if (answer.error == 0) principal = answer.principal;
  return answer.error;
}

}  // namespace paddock
