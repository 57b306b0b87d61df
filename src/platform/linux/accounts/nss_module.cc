#include "platform/linux/accounts/nss_module.h"

#include <dlfcn.h>
#include <grp.h>
#include <nss.h>
#include <pwd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace paddock {

namespace {

constexpr std::size_t kFirstBuffer = 4096;
constexpr std::size_t kLargestBuffer = 64U << 20U;

std::uint32_t idOf(const passwd& entry) { return entry.pw_uid; }
std::uint32_t idOf(const group& entry) { return entry.gr_gid; }

// Calls a function of a module, with a buffer that is large enough.
template <typename Entry, typename Key>
NssModule::Result call(void* address, Key key, std::uint32_t& id) {
  using Function = nss_status(Key, Entry*, char*, std::size_t, int*);
  if (address == nullptr) return NssModule::Result::notFound;
  Function* function = nullptr;
  // POSIX has object pointers and function pointers of one size for dlsym(3).
  static_assert(sizeof function == sizeof address);
  std::memcpy(&function, &address, sizeof function);
  for (std::vector<char> buffer(kFirstBuffer);; buffer.resize(buffer.size() * 2)) {
    Entry entry{};
    int error = 0;
    const nss_status status = function(key, &entry, buffer.data(), buffer.size(), &error);
    if (status == NSS_STATUS_SUCCESS) {
      id = idOf(entry);
      return NssModule::Result::found;
    }
    if (status == NSS_STATUS_NOTFOUND) return NssModule::Result::notFound;
    const bool wantsMore = status == NSS_STATUS_TRYAGAIN && error == ERANGE;
    if (!wantsMore || buffer.size() >= kLargestBuffer) return NssModule::Result::unavailable;
  }
}

}  // namespace

NssModule::NssModule(const std::string& folder, const std::string& name)
    : name_(name), handle_(::dlopen((folder + "libnss_" + name + ".so.2").c_str(), RTLD_NOW)) {}

void* NssModule::function(const std::string& name) const {
  if (handle_ == nullptr) return nullptr;
  return ::dlsym(handle_, ("_nss_" + name_ + "_" + name).c_str());
}

NssModule::Result NssModule::find(PrincipalType type, const std::string& name,
                                  std::uint32_t& id) const {
  if (type == PrincipalType::user)
    return call<passwd, const char*>(function("getpwnam_r"), name.c_str(), id);
  return call<group, const char*>(function("getgrnam_r"), name.c_str(), id);
}

NssModule::Result NssModule::find(const Principal& principal) const {
  std::uint32_t id = 0;
  if (principal.type == PrincipalType::user)
    return call<passwd, uid_t>(function("getpwuid_r"), principal.id, id);
  return call<group, gid_t>(function("getgrgid_r"), principal.id, id);
}

}  // namespace paddock
