// Writes a run's status again and again while it lasts.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "base/value.h"
#include "copyprivs/status_file.h"

namespace paddock::copyprivs {

class StatusWriter {
 public:
  // `status` makes what is written; called on a thread of this object's until `stop`, and first at
  // once. The caller keeps the file alive, and uses it again only after that.
  StatusWriter(StatusFile& file, std::function<Dictionary()> status);
  StatusWriter(const StatusWriter&) = delete;
  StatusWriter& operator=(const StatusWriter&) = delete;
  ~StatusWriter() { stop(); }

  void stop();

 private:
  void run();

  StatusFile& file_;
  const std::function<Dictionary()> status_;
  std::mutex mutex_;
  std::condition_variable ending_;
  bool isEnding_ = false;
  std::thread thread_;
};

}  // namespace paddock::copyprivs
