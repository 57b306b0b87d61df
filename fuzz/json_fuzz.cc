#include <cstdint>
#include <cstdlib>

#include "wire/json.h"

// What can be read, both writers write so that it reads as the same tree.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace wire = paddock::wire;
  std::string error;
  const std::string text(data, data + size);
  const auto value = wire::parseJson(text, error);
  if (!value) {
    if (error.empty()) std::abort();
    return 0;
  }
  if (wire::parseJson(wire::writeJson(*value), error) != value) std::abort();
  if (wire::parseJson(wire::writeJsonPretty(*value), error) != value) std::abort();
  return 0;
}
