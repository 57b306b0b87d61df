#include "copyprivs/status_writer.h"

#include <chrono>
#include <utility>

#include "wire/property_list.h"

namespace paddock::copyprivs {

namespace {

// With the last one, no more than four in a second.
constexpr std::chrono::milliseconds kInterval(350);

}  // namespace

StatusWriter::StatusWriter(StatusFile& file, std::function<Dictionary()> status)
    : file_(file), status_(std::move(status)), thread_([this] { run(); }) {}

void StatusWriter::stop() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  ending_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void StatusWriter::run() {
  std::unique_lock lock(mutex_);
  do {
    file_.replace(wire::writePropertyList(status_()), false);
  } while (!ending_.wait_for(lock, kInterval, [this] { return isEnding_; }));
}

}  // namespace paddock::copyprivs
