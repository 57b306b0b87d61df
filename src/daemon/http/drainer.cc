#include "daemon/http/drainer.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>

#include "base/system_call.h"

namespace paddock {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostBytes = 64U << 20U;
constexpr std::size_t kMostBytesOfStranger = 1U << 20U;
constexpr auto kPatienceForStranger = std::chrono::milliseconds(1000);
constexpr std::size_t kBlock = 64U << 10U;

template <typename Entries>
int millisecondsUntilFirst(const Entries& entries) {
  if (entries.empty()) return -1;
  auto first = entries.front().deadline;
  for (const auto& entry : entries) first = std::min(first, entry.deadline);
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(first - Clock::now()).count();
  return static_cast<int>(std::max<std::int64_t>(left, 0));
}

}  // namespace

Drainer::Drainer(std::size_t most, std::chrono::milliseconds patience)
    : most_(most), patience_(patience), wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!wakeUp_) throw systemError(errno, "eventfd", "");
  thread_ = std::thread([this] { run(); });
}

Drainer::~Drainer() {
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
  }
  wake();
  thread_.join();
}

void Drainer::add(FileDescriptor socket, bool stranger) {
  ::shutdown(socket.get(), SHUT_WR);
  {
    const MutexLock lock(mutex_);
    if (count_ >= most_ || (stranger && strangers_ >= kMostStrangers)) return;
    ++count_;
    if (stranger) ++strangers_;
    const auto patience = stranger ? std::min(patience_, kPatienceForStranger) : patience_;
    added_.push_back({std::move(socket), Clock::now() + patience,
                      stranger ? kMostBytesOfStranger : kMostBytes, stranger});
  }
  wake();
}

void Drainer::answer(FileDescriptor socket, std::string_view text, bool stranger) {
  // A text this short fits the socket's buffer; a client whose buffer is full gets none.
  (void)retryOnInterrupt([&socket, text] {
    return ::send(socket.get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  });
  add(std::move(socket), stranger);
}

void Drainer::wake() const {
  const std::uint64_t one = 1;
  (void)retryOnInterrupt([this, &one] { return ::write(wakeUp_.get(), &one, sizeof one); });
}

void Drainer::collect(std::vector<Entry>& entries) {
  const MutexLock lock(mutex_);
  std::move(added_.begin(), added_.end(), std::back_inserter(entries));
  added_.clear();
}

// False when the connection is over.
bool Drainer::drain(Entry& entry, std::vector<char>& buffer) {
  const auto count = retryOnInterrupt([&entry, &buffer] {
    return ::recv(entry.socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
  });
  if (count < 0) return errno == EAGAIN;
  const auto bytes = static_cast<std::size_t>(count);
  if (bytes == 0 || bytes >= entry.left) return false;
  entry.left -= bytes;
  return true;
}

void Drainer::run() {
  std::vector<Entry> entries;
  std::vector<char> buffer(kBlock);
  for (;;) {
    collect(entries);
    std::vector<pollfd> watched{{wakeUp_.get(), POLLIN, 0}};
    for (const Entry& entry : entries) watched.push_back({entry.socket.get(), POLLIN, 0});
    const int wait = millisecondsUntilFirst(entries);
    retryOnInterrupt([&watched, wait] { return ::poll(watched.data(), watched.size(), wait); });
    std::uint64_t ignored = 0;
    (void)retryOnInterrupt(
        [this, &ignored] { return ::read(wakeUp_.get(), &ignored, sizeof ignored); });
    const auto now = Clock::now();
    std::size_t index = 0;
    std::size_t strangers = 0;
    const auto over = [&](Entry& entry) {
      const bool ready = watched[++index].revents != 0;
      const bool ended = (ready && !drain(entry, buffer)) || now >= entry.deadline;
      if (ended && entry.stranger) ++strangers;
      return ended;
    };
    const auto removed = static_cast<std::size_t>(std::erase_if(entries, over));
    const MutexLock lock(mutex_);
    count_ -= removed;
    strangers_ -= strangers;
    if (stopping_) return;
  }
}

}  // namespace paddock
