#include "keelhouse/core/host_accounts.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <chrono>
#include <system_error>

#include "keelhouse/core/failure.h"

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

// What next() gives until it gives nothing.
template <typename Next>
std::vector<std::string> listNames(Next next, std::size_t most) {
  constexpr std::chrono::seconds kLongest{1};
  const auto end = std::chrono::steady_clock::now() + kLongest;
  std::vector<std::string> names;
  for (const char* name = next(); name != nullptr; name = next()) {
    if (names.size() == most || std::chrono::steady_clock::now() > end) return {};
    names.emplace_back(name);
  }
  return names;
}

std::vector<std::string> userNames(std::size_t most) {
  ::setpwent();
  auto names = listNames(
      []() -> const char* {
        const passwd* entry = ::getpwent();  // NOLINT(concurrency-mt-unsafe): one thread
        return entry != nullptr ? entry->pw_name : nullptr;
      },
      most);
  ::endpwent();
  return names;
}

std::vector<std::string> groupNames(std::size_t most) {
  ::setgrent();
  auto names = listNames(
      []() -> const char* {
        const group* entry = ::getgrent();  // NOLINT(concurrency-mt-unsafe): one thread
        return entry != nullptr ? entry->gr_name : nullptr;
      },
      most);
  ::endgrent();
  return names;
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

std::vector<std::string> hostNames(PrincipalType type, std::size_t most) {
  return type == PrincipalType::user ? userNames(most) : groupNames(most);
}

}  // namespace paddock::keelhouse
