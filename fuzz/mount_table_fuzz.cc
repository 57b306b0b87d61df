#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/linux/files/linux_volume_info.h"

// Every mount of the table is found by its number, and each has its device.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const paddock::MountTable table = paddock::parseMountTable(std::string(data, data + size));
  if (table.devices.size() != table.volumes.size()) std::abort();
  for (const auto& [id, index] : table.byId) {
    if (index >= table.volumes.size() || table.find(id) != &table.volumes[index]) std::abort();
  }
  for (const std::string& device : table.devices) {
    if (table.findDevice(device) == nullptr) std::abort();
  }
  return 0;
}
