// The system log, as the module sees it.
#pragma once

#include <string>
#include <string_view>

namespace paddock {

inline constexpr int kLogError = 3;
inline constexpr int kLogWarning = 4;
inline constexpr int kLogInformation = 6;
inline constexpr int kLogDebug = 7;

class Logger {
 public:
  virtual ~Logger() = default;
  // One message. Never throws.
  virtual void log(int priority, std::string_view text) = 0;
};

}  // namespace paddock
