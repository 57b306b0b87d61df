#include "store/nfs_reshare.h"

#include "platform/directory.h"
#include "platform/plugin_commands.h"
#include "platform/services.h"
#include "platform/volume_info.h"
#include "store/directory_access.h"
#include "store/schema.h"

namespace paddock {

namespace {

constexpr const char* kReshareFolder = "/nfs_reshares";
constexpr const char* kFileBrowser = "paddock_filebrowser";

bool hasMountRecord(const std::string& mountSource) {
  try {
    return get_local_node()->findRecord(mountSource, schema::kMounts) != nullptr;
  } catch (...) {
    return false;
  }
}

void requestMountRecord(const std::string& host, const std::string& exportPath,
                        const std::string& mountPoint) {
  services().pluginCommands->doCommand(kFileBrowser,
                                       {{"command", "nfsWriteMountRec"},
                                        {"nfsServerHostName", host},
                                        {"nfsExportPath", exportPath},
                                        {"nfsResharePath", mountPoint}},
                                       kFileBrowser, std::nullopt);
}

}  // namespace

bool is_nfs_reshare(const std::string& path) { return path.starts_with(kReshareFolder); }

void write_nfs_reshare(const std::string& path, DirectoryRecord& record) {
  MountedVolume volume;
  if (services().volumeInfo->statfs(path, volume) != 0) return;
  const std::string& source = volume.f_mntfromname;
  if (hasMountRecord(source)) return;
  const std::size_t colon = source.find(':');
  if (colon == std::string::npos) return;
  const std::size_t end = source.find(':', colon + 1);
  const std::size_t length = end == std::string::npos ? end : end - colon - 1;
  requestMountRecord(source.substr(0, colon), source.substr(colon + 1, length), volume.f_mntonname);
  record.setAttribute(schema::kReshareMountName, source);
}

}  // namespace paddock
