// Writes one share point, for tests of what follows from its settings.
#pragma once

#include <string>
#include <vector>

#include "store/share_point_update.h"
#include "support/module_fixture.h"

namespace paddock {

inline constexpr const char* kExport = "nfsExportRecord";

class SharePointUpdate : public ModuleFixture {
 protected:
  Status update(const Dictionary& settings) {
    written_ = SharePointRecord::recordWithDictionary(settings);
    return update_sharepoint(written_, {});
  }
  static std::vector<std::string> automountAttributes() {
    return {schema::kIsAutomounted, schema::kStaticMountPath, schema::kAutomountDsPath,
            schema::kAutomountFileSystem, schema::kAutomountRecordName};
  }
  static std::string warning(const std::string& path) {
    return "paddock_sharing: Failed to update the share point for path " + path +
           ". This will not affect the share point creation, although it may not be visible in "
           "certain places (like Browsel) until after a restart.";
  }
  // The element as it is after the write.
  SharePointRecord written_ = SharePointRecord::record();
};

}  // namespace paddock
