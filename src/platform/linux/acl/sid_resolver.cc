#include "platform/linux/acl/sid_resolver.h"

#include <cerrno>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

namespace paddock {

namespace {

using Time = std::chrono::steady_clock::time_point;

struct ResolvedSid {
  int error;
  Principal principal;
};

}  // namespace

// What the callers and the thread share.
struct BoundedSidResolver::Desk {
  explicit Desk(std::shared_ptr<SidResolver> asked) : resolver(std::move(asked)) {}

  void answer(const nt_acl::Sid& sid) {
    Principal principal;
    const int error = resolver->principalOf(sid, principal);
    const MutexLock lock(mutex);
    if (late)
      late = busy = false;
    else
      answered = ResolvedSid{error, principal};
    changed.notify_all();
  }

  // Of the callers: the answer of `desk`, or ETIMEDOUT at the deadline.
  static int ask(const std::shared_ptr<Desk>& desk, Time deadline, const nt_acl::Sid& sid,
                 Principal& principal) PADDOCK_REQUIRES(desk->mutex);

  bool mayWait(const Allowance& allowance, Time now) PADDOCK_REQUIRES(mutex) {
    if (now >= stretchEnd) {
      stretchEnd = now + allowance.stretch;
      waited = {};
    }
    return waited < allowance.waiting;
  }

  const std::shared_ptr<SidResolver> resolver;
  Mutex mutex;
  ConditionVariable changed;
  // A query runs, or its answer has not been taken.
  bool busy PADDOCK_GUARDED_BY(mutex) = false;
  // Nobody waits for the query that runs.
  bool late PADDOCK_GUARDED_BY(mutex) = false;
  std::optional<ResolvedSid> answered PADDOCK_GUARDED_BY(mutex);
  // Of the present stretch.
  Time stretchEnd PADDOCK_GUARDED_BY(mutex);
  Time::duration waited PADDOCK_GUARDED_BY(mutex){};
};

BoundedSidResolver::BoundedSidResolver(std::shared_ptr<SidResolver> resolver,
                                       std::chrono::milliseconds patience,
                                       std::optional<Allowance> allowance)
    : desk_(std::make_shared<Desk>(std::move(resolver))),
      patience_(patience),
      allowance_(allowance) {}

BoundedSidResolver::~BoundedSidResolver() = default;

int BoundedSidResolver::principalOf(const nt_acl::Sid& sid, Principal& principal) {
  const MutexLock lock(desk_->mutex);
  const Time start = std::chrono::steady_clock::now();
  if (allowance_ && !desk_->mayWait(*allowance_, start)) return ETIMEDOUT;
  const Time deadline = std::chrono::steady_clock::now() + patience_;
  const int error = Desk::ask(desk_, deadline, sid, principal);
  desk_->waited += std::chrono::steady_clock::now() - start;
  return error;
}

int BoundedSidResolver::Desk::ask(const std::shared_ptr<Desk>& desk, Time deadline,
                                  const nt_acl::Sid& sid, Principal& principal) {
  while (desk->busy && !desk->late && desk->changed.wait_until(desk->mutex, deadline)) continue;
  if (desk->busy) return ETIMEDOUT;
  desk->busy = true;
  try {
    std::thread([held = desk, sid] { held->answer(sid); }).detach();
  } catch (const std::system_error&) {
    desk->busy = false;
    return EAGAIN;
  }
  while (!desk->answered && desk->changed.wait_until(desk->mutex, deadline)) continue;
  if (!desk->answered) {
    desk->late = true;
    desk->changed.notify_all();
    return ETIMEDOUT;
  }
  const ResolvedSid answer = *desk->answered;
  desk->answered.reset();
  desk->busy = false;
  desk->changed.notify_all();
  principal = answer.principal;
  return answer.error;
}

CachedSidResolver::CachedSidResolver(std::unique_ptr<SidResolver> resolver,
                                     std::shared_ptr<Clock> clock, std::chrono::seconds lifetime)
    : resolver_(std::move(resolver)), clock_(std::move(clock)), answers_(lifetime, kCapacity) {}

bool CachedSidResolver::find(const nt_acl::Sid& sid, Answer& answer) {
  const MutexLock lock(mutex_);
  const Answer* found = answers_.find(sid, clock_->monotonicNow());
  if (found != nullptr) answer = *found;
  return found != nullptr;
}

int CachedSidResolver::principalOf(const nt_acl::Sid& sid, Principal& principal) {
  Answer answer;
  if (!find(sid, answer)) {
    answer.error = resolver_->principalOf(sid, answer.principal);
    const MutexLock lock(mutex_);
    answers_.keep(sid, answer, clock_->monotonicNow());
  }
  if (answer.error == 0) principal = answer.principal;
  return answer.error;
}

}  // namespace paddock
