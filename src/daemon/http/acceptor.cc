#include "daemon/http/acceptor.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "base/system_call.h"
#include "daemon/http/admission.h"
#include "paddock/sys_logger.h"

namespace paddock {
namespace {

using std::chrono::milliseconds;

constexpr auto kPauseWithoutDescriptors = milliseconds(50);
constexpr auto kTick = milliseconds(250);
constexpr auto kStep = milliseconds(10);
constexpr auto kPatienceForPlace = milliseconds(500);
constexpr auto kPatienceForRights = std::chrono::seconds(10);
// Arrivals accepted between two checks of the queue.
constexpr int kBatch = 64;
// Of one user without rights, in a second.
constexpr std::size_t kMostAnsweredRefusals = 100;
// Who may wait outside: connections in all, of one user, and of one user without rights.
constexpr std::size_t kMostWaiting = 2048;
constexpr std::size_t kMostWaitingPerUser = 256;
constexpr std::size_t kMostStrangersPerUser = 8;

constexpr const char* kBusy = "too many connections";
constexpr const char* kUnknown =
    "too many connections: the users and groups of this system do not answer, and what user ";

FileDescriptor newEvent() {
  FileDescriptor event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!event) throw systemError(errno, "eventfd", "");
  return event;
}

void signal(const FileDescriptor& event) {
  const std::uint64_t one = 1;
  (void)retryOnInterrupt([&event, &one] { return ::write(event.get(), &one, sizeof one); });
}

void clear(const FileDescriptor& event) {
  std::uint64_t ignored = 0;
  (void)retryOnInterrupt(
      [&event, &ignored] { return ::read(event.get(), &ignored, sizeof ignored); });
}

}  // namespace

Acceptor::Acceptor(int listener, KnownRights::Judge judge, Door door)
    : listener_(listener),
      door_(std::move(door)),
      stop_(newEvent()),
      judged_(newEvent()),
      rights_(std::move(judge), [this] { signal(judged_); }) {}

void Acceptor::start() {
  thread_ = std::thread([this] { run(); });
}

void Acceptor::stop() {
  if (!thread_.joinable()) return;
  signal(stop_);
  thread_.join();
}

void Acceptor::run() {
  ::pthread_setname_np(::pthread_self(), "acceptor");
  for (;;) {
    std::array<pollfd, 3> watched{
        {{stop_.get(), POLLIN, 0}, {judged_.get(), POLLIN, 0}, {listener_, POLLIN, 0}}};
    const auto wait = waiting_.empty() ? kTick : kStep;
    retryOnInterrupt([&watched, wait] {
      return ::poll(watched.data(), watched.size(), static_cast<int>(wait.count()));
    });
    if (watched[0].revents != 0) return;
    if (watched[1].revents != 0) clear(judged_);
    try {
      serve(watched[1].revents != 0, watched[2].revents != 0, Clock::now());
    } catch (const std::exception& error) {
      logMessage(3, std::string("connection given up: ") + error.what());
    }
  }
}

void Acceptor::serve(bool judged, bool arrived, Clock::time_point now) {
  // Those who wait have their turn however many arrive.
  const bool turn = now >= nextTick_;
  if (turn) nextTick_ = now + kTick;
  if (turn) door_.tick(now);
  if (judged || turn || !arrived) placeWaiting(now);
  if (now >= nextSecond_) {
    nextSecond_ = now + std::chrono::seconds(1);
    refused_.clear();
  }
  for (int count = 0; arrived && count < kBatch; ++count) arrived = acceptOne();
}

bool Acceptor::acceptOne() {
  FileDescriptor socket(::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (socket) {
    receive(std::move(socket));
    return true;
  }
  if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
    logMessage(3, systemError(errno, "accept", "").what());
    std::this_thread::sleep_for(kPauseWithoutDescriptors);
  }
  return false;
}

void Acceptor::receive(FileDescriptor socket) {
  auto peer = credentialsOf(socket.get());
  if (!peer) return;
  const auto refused = refused_.find(peer->uid);
  const bool insists = refused != refused_.end() && refused->second >= kMostAnsweredRefusals;
  if (insists && rights_.of(peer->uid) == Rights::nothing && !isAlwaysAdmitted(peer->process)) {
    return;
  }
  peer->loginUser = loginUserOf(peer->process);
  admit({std::move(socket), *peer, Clock::now()});
}

void Acceptor::refuse(Arrival arrival, Rights rights, const std::string& why) {
  if (rights == Rights::nothing) ++refused_[arrival.peer.uid];
  door_.refuse(std::move(arrival), rights, why);
}

void Acceptor::admit(Arrival arrival) {
  // Programs that a request waits for are admitted under any uid.
  if (isAlwaysAdmitted(arrival.peer.process) && door_.take(arrival, Rights::everything)) return;
  if (place(arrival, arrival.time)) return;
  if (hasRoom(arrival)) {
    waiting_.push_back(std::move(arrival));
  } else {
    refuse(std::move(arrival), Rights::nothing, kBusy);
  }
}

bool Acceptor::hasRoom(const Arrival& arrival) const {
  const auto same = std::count_if(waiting_.begin(), waiting_.end(), [&arrival](const auto& other) {
    return other.peer.uid == arrival.peer.uid;
  });
  const auto limit = arrival.withoutPlace ? kMostStrangersPerUser : kMostWaitingPerUser;
  return waiting_.size() < kMostWaiting && static_cast<std::size_t>(same) < limit;
}

bool Acceptor::place(Arrival& arrival, Clock::time_point now) {
  const auto rights = rights_.of(arrival.peer.uid);
  if (!rights) {
    if (now - arrival.time < kPatienceForRights) return false;
    const std::string user = std::to_string(arrival.peer.uid);
    refuse(std::move(arrival), Rights::nothing, kUnknown + user + " may do is not known");
    return true;
  }
  if (door_.take(arrival, *rights)) return true;
  if (!arrival.withoutPlace) arrival.withoutPlace = now;
  const bool stranger = *rights == Rights::nothing;
  if (stranger && now - *arrival.withoutPlace < kPatienceForPlace) return false;
  refuse(std::move(arrival), *rights, kBusy);
  return true;
}

void Acceptor::placeWaiting(Clock::time_point now) {
  // Each is taken out first: one that cannot be placed for lack of memory is given up.
  for (std::size_t left = waiting_.size(); left > 0; --left) {
    std::list<Arrival> one;
    one.splice(one.begin(), waiting_, waiting_.begin());
    if (!place(one.front(), now)) waiting_.splice(waiting_.end(), one);
  }
}

}  // namespace paddock
