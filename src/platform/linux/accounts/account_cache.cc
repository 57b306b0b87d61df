#include "platform/linux/accounts/account_cache.h"

#include <sys/stat.h>

#include "base/system_call.h"

namespace paddock {

namespace {

std::chrono::nanoseconds changeTime(const struct stat& status) {
  return std::chrono::seconds(status.st_ctim.tv_sec) +
         std::chrono::nanoseconds(status.st_ctim.tv_nsec);
}

thread_local AccountFiles::Moment* currentMoment = nullptr;

}  // namespace

std::vector<std::string> AccountFiles::usual(std::vector<std::string> more) {
  for (const char* path :
       {"/etc/passwd", "/etc/group", "/var/lib/extrausers/passwd", "/var/lib/extrausers/group"})
    more.emplace_back(path);
  return more;
}

AccountFiles::Moment::Moment(const AccountFiles* files) : files_(files) {
  if (files_ != nullptr) currentMoment = this;
}

AccountFiles::Moment::~Moment() {
  if (files_ != nullptr) currentMoment = nullptr;
}

AccountFilesStamp AccountFiles::stamp() const {
  Moment* moment = currentMoment;
  if (moment == nullptr || moment->files_ != this) return look();
  if (!moment->stamp_) moment->stamp_ = look();
  return *moment->stamp_;
}

AccountFilesStamp AccountFiles::look() const {
  AccountFilesStamp stamp;
  stamp.isSettled = true;
  const std::chrono::nanoseconds now = clock_.now().time_since_epoch();
  for (const std::string& path : paths_) {
    struct stat status {};
    AccountFilesStamp::File file;
    if (errnoOf([&] { return ::stat(path.c_str(), &status); }) == 0) {
      const auto changed = changeTime(status);
      file = {status.st_dev, status.st_ino, status.st_size, changed.count()};
      stamp.isSettled = stamp.isSettled && changed + kTick < now;
    }
    stamp.files.push_back(file);
  }
  return stamp;
}

}  // namespace paddock
