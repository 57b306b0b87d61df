// Browser information in the extended attribute "user.paddock.browserinfo"; see xattr(7).
#pragma once

#include "platform/browser_information.h"

namespace paddock {

// Any thread may call.
class LinuxBrowserInformation : public BrowserInformationService {
 public:
  int read(const std::string& path, BrowserInformation& information) override;
  int write(const std::string& path, const BrowserInformation& information) override;
};

}  // namespace paddock
