#include "platform/linux/dnssd/dns_sd_log.h"

#include <utility>

#include "platform/logger.h"

namespace paddock::dns_sd {

void DnsSdLog::log(int priority, const std::string& text) {
  const std::lock_guard lock(mutex_);
  if (logger_ != nullptr) logger_->log(priority, "paddock_sharing: " + text);
}

void DnsSdLog::close() {
  const std::lock_guard lock(mutex_);
  logger_ = nullptr;
}

void DnsSdLog::warnOnce(const std::string& text) {
  if (warned_.insert(text).second) log(kLogWarning, text);
}

bool DnsSdLog::troubleIsOver() { return !std::exchange(warned_, {}).empty(); }

}  // namespace paddock::dns_sd
