#include "keelhouse/access/kernel_acl.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <system_error>

#include "base/posix_acl_entries.h"
#include "base/system_call.h"

namespace paddock::keelhouse {

namespace {

// The value of the attribute; absent when there is none. `error` is an errno, or 0.
std::optional<std::string> readAttribute(const std::string& path, const char* name, int& error) {
  // What the kernel holds at most (XATTR_SIZE_MAX).
  std::string value(65536, '\0');
  ssize_t size = 0;
  error =
      errnoOf([&] { return ::getxattr(path.c_str(), name, value.data(), value.size()); }, &size);
  if (error == ENODATA) error = 0;
  if (error != 0 || size == 0) return std::nullopt;
  value.resize(static_cast<std::size_t>(size));
  return value;
}

std::optional<KernelAcl> readAcl(const std::string& path, const char* name, std::string& problem) {
  int error = 0;
  const auto value = readAttribute(path, name, error);
  if (error != 0) problem = std::generic_category().message(error);
  if (!value) return std::nullopt;
  auto acl = parseKernelAcl(*value);
  if (!acl) problem = std::string(name) + " is not in a form that is known";
  return acl;
}

std::optional<std::string> kernelHash(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  int error = 0;
  samba::KernelAcls acls{status.st_uid, status.st_gid, status.st_mode, {}, {}};
  acls.access = readAttribute(path, "system.posix_acl_access", error);
  if (error == 0 && S_ISDIR(status.st_mode))
    acls.defaultAccess = readAttribute(path, "system.posix_acl_default", error);
  return error == 0 ? samba::kernelAclHashOf(acls) : std::nullopt;
}

}  // namespace

// The list is in whichever attribute holds one.
samba::ListForce listForce(const std::string& path) {
  std::string names(65536, '\0');
  ssize_t size = 0;
  if (errnoOf([&] { return ::listxattr(path.c_str(), names.data(), names.size()); }, &size) != 0)
    return samba::ListForce::inForce;
  names.resize(static_cast<std::size_t>(size));
  for (std::size_t at = 0; at < names.size(); at = names.find('\0', at) + 1) {
    int error = 0;
    const auto value = readAttribute(path, &names[at], error);
    const auto force =
        value ? samba::listForce(*value, [&] { return kernelHash(path); }) : std::nullopt;
    if (force && force != samba::ListForce::inForce) return *force;
  }
  return samba::ListForce::inForce;
}

std::optional<unsigned> KernelAcl::bitsOf(const Principal& who) const {
  for (const Entry& entry : entries) {
    if (entry.who == who) return entry.bits;
  }
  return std::nullopt;
}

std::optional<KernelAcl> parseKernelAcl(std::string_view bytes) {
  using posix_acl::Tag;
  const auto entries = posix_acl::readEntries(bytes);
  if (!entries) return std::nullopt;
  KernelAcl acl;
  unsigned allowed = kKernelRead | kKernelWrite | kKernelExecute;
  // What is there is shown, deliberately also where the kernel would want more entries.
  for (const posix_acl::Entry& entry : *entries) {
    if (entry.tag == Tag::mask) allowed = entry.bits;
    if (entry.tag != Tag::user && entry.tag != Tag::group) continue;
    const auto type = entry.tag == Tag::user ? PrincipalType::user : PrincipalType::group;
    acl.entries.push_back({{type, entry.id}, entry.bits});
  }
  for (KernelAcl::Entry& entry : acl.entries) entry.bits &= allowed;
  return acl;
}

KernelAcls readKernelAcls(const std::string& path, bool folder) {
  KernelAcls acls;
  acls.access = readAcl(path, "system.posix_acl_access", acls.error);
  if (!folder || !acls.error.empty()) return acls;
  acls.defaultAccess = readAcl(path, "system.posix_acl_default", acls.error);
  return acls;
}

std::string kernelBitsText(unsigned bits) {
  std::string text;
  text += (bits & kKernelRead) != 0 ? 'r' : '-';
  text += (bits & kKernelWrite) != 0 ? 'w' : '-';
  text += (bits & kKernelExecute) != 0 ? 'x' : '-';
  return text;
}

}  // namespace paddock::keelhouse
