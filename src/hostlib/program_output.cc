#include "hostlib/program_output.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <vector>

#include "base/system_call.h"

namespace paddock {
namespace {

constexpr std::size_t kBlock = 64U << 10U;
// A pipe holds 1 MiB at most, so this reads all that was written before the program ended, and
// ends also when a process that the program left behind writes without pause.
constexpr int kBlocksAfterEnd = 32;

// One block of a stream. False when there is nothing more for now; closes the stream at its end.
bool readBlock(FileDescriptor& stream, std::vector<char>& buffer, std::size_t limit,
               std::string& text) {
  if (!stream) return false;
  const auto count = retryOnInterrupt(
      [&stream, &buffer] { return ::read(stream.get(), buffer.data(), buffer.size()); });
  if (count <= 0) {
    if (count == 0 || errno != EAGAIN) stream.reset();
    return false;
  }
  const std::size_t room = limit - std::min(limit, text.size());
  text.append(buffer.data(), std::min(room, static_cast<std::size_t>(count)));
  return true;
}

int millisecondsUntil(std::chrono::steady_clock::time_point deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
}

}  // namespace

bool readUntilEnd(ChildProcess& child, std::chrono::steady_clock::time_point deadline,
                  std::size_t limit, std::string& output, std::string& errorOutput) {
  std::vector<char> buffer(kBlock);
  for (;;) {
    // poll(2) skips the negative descriptor of a closed stream.
    std::array<pollfd, 3> watched{{{child.ended(), POLLIN, 0},
                                   {child.output().get(), POLLIN, 0},
                                   {child.errorOutput().get(), POLLIN, 0}}};
    const int wait = millisecondsUntil(deadline);
    retryOnInterrupt([&watched, wait] { return ::poll(watched.data(), watched.size(), wait); });
    const bool ended = watched[0].revents != 0;
    if (!ended && millisecondsUntil(deadline) == 0) return false;
    for (int blocks = ended ? kBlocksAfterEnd : 1; blocks > 0; --blocks) {
      const bool more = readBlock(child.output(), buffer, limit, output);
      if (!readBlock(child.errorOutput(), buffer, limit, errorOutput) && !more) break;
    }
    if (ended) return true;
  }
}

}  // namespace paddock
