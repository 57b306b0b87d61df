// Browser information of real files, kept in memory.
#pragma once

#include <cerrno>
#include <filesystem>
#include <map>
#include <string>

#include "platform/browser_information.h"

namespace paddock {

class FakeBrowserInformation : public BrowserInformationService {
 public:
  int read(const std::string& path, BrowserInformation& information) override {
    information = {};
    if (const int error = pathError(path); error != 0) return error;
    const auto kept = kept_.find(path);
    if (kept != kept_.end()) information = kept->second;
    return 0;
  }
  int write(const std::string& path, const BrowserInformation& information) override {
    if (const int error = pathError(path); error != 0) return error;
    const auto status = std::filesystem::symlink_status(path);
    if (!std::filesystem::is_regular_file(status) && !std::filesystem::is_directory(status)) {
      return EPERM;
    }
    kept_[path] = information;
    return 0;
  }

  // What was written to the path; null when nothing was.
  const BrowserInformation* find(const std::string& path) const {
    const auto kept = kept_.find(path);
    return kept == kept_.end() ? nullptr : &kept->second;
  }

 private:
  static int pathError(const std::string& path) {
    if (path.find('\0') != std::string::npos) return EINVAL;
    return std::filesystem::exists(std::filesystem::symlink_status(path)) ? 0 : ENOENT;
  }

  std::map<std::string, BrowserInformation> kept_;
};

}  // namespace paddock
