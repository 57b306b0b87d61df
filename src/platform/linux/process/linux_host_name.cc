#include "platform/linux/process/linux_host_name.h"

#include <unistd.h>
#include <climits>

#include <array>

#include "base/system_call.h"

namespace paddock {

int LinuxHostName::gethostname(std::string& name) {
  name.clear();
  std::array<char, HOST_NAME_MAX + 1> buffer{};
  const int error = errnoOf([&] { return ::gethostname(buffer.data(), buffer.size()); });
  if (error == 0) name = buffer.data();
  return error;
}

}  // namespace paddock
