#include <cstdint>
#include <cstdlib>

#include "wire/property_list.h"

// What can be read is written so that it reads as the same tree.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace wire = paddock::wire;
  std::string error;
  const std::string text(data, data + size);
  const auto value = wire::parsePropertyList(text, error);
  if (!value) {
    if (error.empty()) std::abort();
    return 0;
  }
  if (wire::parsePropertyList(wire::writePropertyList(*value), error) != value) std::abort();
  return 0;
}
