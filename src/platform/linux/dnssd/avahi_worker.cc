#include "platform/linux/dnssd/avahi_worker.h"

#include <avahi-common/error.h>

#include <algorithm>

#include "base/text.h"
#include "platform/linux/dnssd/avahi_link.h"
#include "platform/linux/dnssd/txt_prefix.h"
#include "platform/logger.h"

namespace paddock::dns_sd {

namespace {

// A service that is stopped and published again in other words, as after each change of the share
// points, stays on the network in between.
constexpr std::chrono::milliseconds kLinger{100};

std::string quoted(const std::string& text) { return '"' + printable(text) + '"'; }

// What stands before the first comma of each, which names a destination.
std::string beginnings(const std::vector<std::string>& strings) {
  std::string text;
  for (const std::string& one : strings) {
    if (!text.empty()) text += ", ";
    text += printable(one.substr(0, one.find(',')));
  }
  return text;
}

Dictionary errorsOf(int error) { return {{"error", avahi_strerror(error)}, {"errorCode", error}}; }

}  // namespace

AvahiWorker::AvahiWorker(ServiceOrders& orders, DnsSdLog& log, BackOff pauses)
    : orders_(orders), log_(log), link_(log, pauses, [&orders] { orders.wake(); }) {}

void AvahiWorker::run() {
  std::optional<Time> next;
  while (orders_.wait(next)) next = pass();
  letGo();
}

// When there is something to do next, when nothing changes before.
std::optional<AvahiWorker::Time> AvahiWorker::pass() {
  const Time now = std::chrono::steady_clock::now();
  followWishes(now);
  tell();
  if (jobs_.empty() && !link_.isConnected()) return std::nullopt;
  if (AvahiPollThread* poll = link_.pollThread()) {
    const std::lock_guard lock(*poll);  // Avahi's own, which guards nothing of ours
    carryOn(now);
  }
  tell();
  return nextTime();
}

void AvahiWorker::followWishes(Time now) {
  const std::vector<Wish> wishes = orders_.wishes();
  const auto isOf = [](const Wish& wish) {
    return [&wish](const Job& job) { return job.wish.isOfPublication(wish); };
  };
  for (Job& job : jobs_) {
    const bool isWanted = std::any_of(wishes.begin(), wishes.end(), [&job](const Wish& wish) {
      return wish.isOfPublication(job.wish);
    });
    if (!isWanted && !job.unwantedSince) job.unwantedSince = now;
  }
  for (const Wish& wish : wishes) {
    const auto job = std::find_if(jobs_.begin(), jobs_.end(), isOf(wish));
    if (job != jobs_.end())
      job->wish.txt = wish.txt;
    else
      begin(wish);
  }
}

void AvahiWorker::begin(const Wish& wish) {
  Job job(wish);
  if (const int wrong = wrongIn(job.description())) {
    noteRefused(job, wrong);
  } else {
    job.advertisement = takeOver(job.description());
    if (!job.advertisement)
      job.advertisement =
          std::make_unique<AvahiAdvertisement>(job.description(), [this] { orders_.wake(); });
    notices_.emplace_back([this, order = wish.order] { orders_.tellWillPublish(*order); });
  }
  jobs_.push_back(std::move(job));
}

// From a job that is not wanted any more, and ends; null when none has such a service.
std::unique_ptr<AvahiAdvertisement> AvahiWorker::takeOver(const ServiceDescription& description) {
  const auto job = std::find_if(jobs_.begin(), jobs_.end(), [&](const Job& other) {
    return other.unwantedSince && other.advertisement && other.description() == description;
  });
  if (job == jobs_.end()) return nullptr;
  auto advertisement = std::move(job->advertisement);
  end(job);
  return advertisement;
}

void AvahiWorker::carryOn(Time now) {
  withdrawUnwanted(now);
  if (link_.isConnected() && link_.state() == AVAHI_CLIENT_FAILURE) disconnect(0);
  if (!hasActiveJob()) return;
  link_.connect(now);
  switch (link_.state()) {
    case AVAHI_CLIENT_S_RUNNING:
      link_.noteRunning();
      maintainAll(now);
      break;
    case AVAHI_CLIENT_S_COLLISION:
      // The host gets another name; the services follow it.
      for (Job& job : jobs_)
        if (job.advertisement) job.advertisement->withdraw();
      break;
    case AVAHI_CLIENT_FAILURE:
      if (link_.isConnected()) disconnect(0);
      break;
    default:
      break;
  }
}

void AvahiWorker::withdrawUnwanted(Time now) {
  for (auto job = jobs_.begin(); job != jobs_.end();) {
    if (!job->unwantedSince || now < *job->unwantedSince + kLinger) {
      ++job;
      continue;
    }
    job = end(job);
  }
}

// The next one. A refused order was not published, so its end is not reported.
AvahiWorker::Jobs::iterator AvahiWorker::end(Jobs::iterator job) {
  if (!job->saidRefused)
    notices_.emplace_back([this, order = job->wish.order] { orders_.tellDidStop(*order); });
  return jobs_.erase(job);
}

void AvahiWorker::maintainAll(Time now) {
  for (Job& job : jobs_) {
    if (!job.isActive()) continue;
    if (orders_.isClosed()) return;
    if (!maintain(job, now)) return;
  }
}

// False when the connection was lost.
bool AvahiWorker::maintain(Job& job, Time now) {
  measureTxt(job);
  using State = AvahiAdvertisement::State;
  switch (job.advertisement->maintain(link_.connection(), job.txt, now)) {
    case State::published:
      notePublished(job);
      return true;
    case State::refused:
      noteRefused(job, job.advertisement->error());
      return true;
    case State::disconnected:
      disconnect(job.advertisement->error());
      return false;
    case State::pending:
      break;
  }
  return true;
}

void AvahiWorker::disconnect(int error) {
  for (Job& job : jobs_) {
    if (job.advertisement) job.advertisement->forget();
    job.loggedName.clear();
  }
  link_.drop(error);
}

void AvahiWorker::letGo() {
  if (AvahiPollThread* poll = link_.isConnected() ? link_.pollThread() : nullptr) {
    const std::lock_guard lock(*poll);
    // The end of the connection withdraws everything, without waiting for an answer each time.
    for (Job& job : jobs_)
      if (job.advertisement) job.advertisement->forget();
    jobs_.clear();
    link_.close();
  }
  link_.end();
}

void AvahiWorker::notePublished(Job& job) {
  job.saidRefused = false;
  if (job.loggedName == job.advertisement->name()) return;
  job.loggedName = job.advertisement->name();
  log_.log(kLogInformation, quoted(job.description().type) + " is advertised on the network as " +
                                quoted(job.loggedName) + ", port " +
                                std::to_string(job.description().port));
}

void AvahiWorker::noteRefused(Job& job, int error) {
  if (job.saidRefused) return;
  job.saidRefused = true;
  orders_.noteRefused(job.wish);
  log_.log(kLogWarning, quoted(job.description().type) +
                            " cannot be advertised on the network: " + avahi_strerror(error));
  notices_.emplace_back([this, order = job.wish.order, error] {
    orders_.tellDidNotPublish(*order, errorsOf(error));
  });
}

// Takes over what is wanted of the TXT record.
void AvahiWorker::measureTxt(Job& job) {
  if (job.measured == job.wish.txt) return;
  job.measured = job.wish.txt;
  const std::size_t most = mostTxtBytes(smallestPacket());
  const TxtPrefix prefix = txtPrefix(*job.measured, most);
  job.txt = prefix.data;
  if (prefix.leftOut.empty()) return;
  log_.log(kLogWarning, quoted(job.description().type) + " has a TXT record of " +
                            std::to_string(job.measured->bytes.size()) + " bytes, and " +
                            std::to_string(most) + " fit into a packet of the network: the last " +
                            std::to_string(prefix.leftOut.size()) + " of its " +
                            std::to_string(prefix.leftOut.size() + prefix.strings) +
                            " strings are left out: " + beginnings(prefix.leftOut));
}

void AvahiWorker::tell() {
  for (const auto& notice : std::exchange(notices_, {})) notice();
}

bool AvahiWorker::hasActiveJob() const {
  return std::any_of(jobs_.begin(), jobs_.end(), [](const Job& job) { return job.isActive(); });
}

std::optional<AvahiWorker::Time> AvahiWorker::nextTime() const {
  std::optional<Time> next;
  const auto consider = [&next](Time time) { next = next ? std::min(*next, time) : time; };
  for (const Job& job : jobs_) {
    if (job.unwantedSince) consider(*job.unwantedSince + kLinger);
    if (job.isActive() && job.advertisement->due()) consider(*job.advertisement->due());
  }
  if (hasActiveJob() && !link_.isConnected()) consider(link_.retry());
  return next;
}

}  // namespace paddock::dns_sd
