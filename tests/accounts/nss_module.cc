// A source of the name service switch: see nss_module.h.
#include "accounts/nss_module.h"

#include <grp.h>
#include <nss.h>
#include <pwd.h>

#include <cerrno>
#include <cstddef>
#include <string>

namespace {

paddock::NssModuleControl control;

constexpr unsigned kKnown = 7000;
constexpr unsigned kLarge = 7001;
constexpr std::size_t kSizeForLarge = 50'000;

unsigned idOf(const std::string& name) {
  if (name == "known") return kKnown;
  return name == "large" ? kLarge : 0;
}

nss_status answer(unsigned id, std::size_t size, int* error) {
  ++control.questions;
  *error = ENOENT;
  if (control.isUnavailable) return NSS_STATUS_UNAVAIL;
  if (id != kKnown && id != kLarge) return NSS_STATUS_NOTFOUND;
  if (id == kKnown || size >= kSizeForLarge) return NSS_STATUS_SUCCESS;
  *error = ERANGE;
  return NSS_STATUS_TRYAGAIN;
}

}  // namespace

extern "C" {

paddock::NssModuleControl* paddocktestControl() { return &control; }

nss_status _nss_paddocktest_getpwnam_r(const char* name, passwd* entry, char*, std::size_t size,
                                       int* error) {
  entry->pw_uid = idOf(name);
  return answer(entry->pw_uid, size, error);
}
nss_status _nss_paddocktest_getpwuid_r(uid_t uid, passwd* entry, char*, std::size_t size,
                                       int* error) {
  entry->pw_uid = uid;
  return answer(uid, size, error);
}
nss_status _nss_paddocktest_getgrnam_r(const char* name, group* entry, char*, std::size_t size,
                                       int* error) {
  entry->gr_gid = idOf(name);
  return answer(entry->gr_gid, size, error);
}
nss_status _nss_paddocktest_getgrgid_r(gid_t gid, group* entry, char*, std::size_t size,
                                       int* error) {
  entry->gr_gid = gid;
  return answer(gid, size, error);
}
}
