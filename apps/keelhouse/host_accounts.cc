#include "keelhouse/host_accounts.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <system_error>
#include <vector>

#include "keelhouse/failure.h"

namespace paddock::keelhouse {

namespace {

constexpr std::size_t kFirstBuffer = 4096;
constexpr std::size_t kLargestBuffer = 64U << 20U;

// What the functions of the switch return for an entry that is not there: see getpwnam(3).
bool meansAbsent(int error) {
  return error == 0 || error == ENOENT || error == ESRCH || error == EBADF || error == EPERM;
}

// What use(entry) makes of the entry that ask(entry, buffer, size, found) finds.
template <typename Entry, typename Ask, typename Use>
auto lookUp(Ask ask, Use use) -> std::optional<decltype(use(Entry{}))> {
  std::vector<char> buffer(kFirstBuffer);
  for (;;) {
    Entry entry{};
    Entry* found = nullptr;
    const int error = ask(&entry, buffer.data(), buffer.size(), &found);
    if (error == EINTR) continue;
    if (error == 0 && found != nullptr) return use(*found);
    if (error != ERANGE || buffer.size() >= kLargestBuffer) {
      if (meansAbsent(error)) return std::nullopt;
      throw failure("users and groups cannot be looked up: " +
                    std::generic_category().message(error));
    }
    buffer.resize(buffer.size() * 2);
  }
}

}  // namespace

std::optional<std::uint32_t> hostId(PrincipalType type, const std::string& name) {
  // A NUL would end the name early.
  if (name.find('\0') != std::string::npos) return std::nullopt;
  if (type == PrincipalType::user) {
    return lookUp<passwd>([&](auto... rest) { return ::getpwnam_r(name.c_str(), rest...); },
                          [](const passwd& entry) -> std::uint32_t { return entry.pw_uid; });
  }
  return lookUp<group>([&](auto... rest) { return ::getgrnam_r(name.c_str(), rest...); },
                       [](const group& entry) -> std::uint32_t { return entry.gr_gid; });
}

std::optional<std::string> hostName(const Principal& principal) {
  if (principal.type == PrincipalType::user) {
    return lookUp<passwd>([&](auto... rest) { return ::getpwuid_r(principal.id, rest...); },
                          [](const passwd& entry) -> std::string { return entry.pw_name; });
  }
  return lookUp<group>([&](auto... rest) { return ::getgrgid_r(principal.id, rest...); },
                       [](const group& entry) -> std::string { return entry.gr_name; });
}

}  // namespace paddock::keelhouse
