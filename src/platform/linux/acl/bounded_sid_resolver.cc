#include "platform/linux/acl/bounded_sid_resolver.h"

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

namespace paddock {

namespace {

using Time = std::chrono::steady_clock::time_point;

struct Answer {
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
    const std::lock_guard lock(mutex);
    if (late)
      late = busy = false;
    else
      answered = Answer{error, principal};
    changed.notify_all();
  }

  bool mayWait(const Allowance& allowance, Time now) {
    if (now >= stretchEnd) {
      stretchEnd = now + allowance.stretch;
      waited = {};
    }
    return waited < allowance.waiting;
  }

  const std::shared_ptr<SidResolver> resolver;
  std::mutex mutex;
  std::condition_variable changed;
  bool busy = false;  // a query runs, or its answer has not been taken
  bool late = false;  // nobody waits for the query that runs
  std::optional<Answer> answered;
  // Of the present stretch.
  Time stretchEnd;
  Time::duration waited{};
};

BoundedSidResolver::BoundedSidResolver(std::shared_ptr<SidResolver> resolver,
                                       std::chrono::milliseconds patience,
                                       std::optional<Allowance> allowance)
    : desk_(std::make_shared<Desk>(std::move(resolver))),
      patience_(patience),
      allowance_(allowance) {}

BoundedSidResolver::~BoundedSidResolver() = default;

int BoundedSidResolver::principalOf(const nt_acl::Sid& sid, Principal& principal) {
  Desk& desk = *desk_;
  std::unique_lock lock(desk.mutex);
  const Time start = std::chrono::steady_clock::now();
  if (allowance_ && !desk.mayWait(*allowance_, start)) return ETIMEDOUT;
  const int error = ask(lock, sid, principal);
  desk.waited += std::chrono::steady_clock::now() - start;
  return error;
}

// `lock` holds the desk's mutex.
int BoundedSidResolver::ask(std::unique_lock<std::mutex>& lock, const nt_acl::Sid& sid,
                            Principal& principal) {
  const Time deadline = std::chrono::steady_clock::now() + patience_;
  Desk& desk = *desk_;
  desk.changed.wait_until(lock, deadline, [&] { return !desk.busy || desk.late; });
  if (desk.busy) return ETIMEDOUT;
  desk.busy = true;
  try {
    std::thread([held = desk_, sid] { held->answer(sid); }).detach();
  } catch (const std::system_error&) {
    desk.busy = false;
    return EAGAIN;
  }
  if (!desk.changed.wait_until(lock, deadline, [&] { return desk.answered.has_value(); })) {
    desk.late = true;
    desk.changed.notify_all();
    return ETIMEDOUT;
  }
  const Answer answer = *desk.answered;
  desk.answered.reset();
  desk.busy = false;
  desk.changed.notify_all();
  principal = answer.principal;
  return answer.error;
}

}  // namespace paddock
