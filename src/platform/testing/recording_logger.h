// A logger that keeps what was logged.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/logger.h"

namespace paddock {

class RecordingLogger : public Logger {
 public:
  struct Line {
    int priority = 0;
    std::string text;
    friend bool operator==(const Line&, const Line&) = default;
  };

  void log(int priority, std::string_view text) override {
    const std::lock_guard lock(mutex_);
    lines_.push_back({priority, std::string(text)});
  }

  std::vector<Line> lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }
  void clear() {
    const std::lock_guard lock(mutex_);
    lines_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Line> lines_;
};

}  // namespace paddock
