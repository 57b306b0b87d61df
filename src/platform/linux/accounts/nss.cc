#include "platform/linux/accounts/nss.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <mutex>
#include <system_error>

#include "base/mutex.h"
#include "base/system_call.h"
#include "platform/directory.h"

namespace paddock {

// The position of an enumeration belongs to the process. Being inline and visible, this mutex
// is one object of the process too, also when several plug-ins are linked with this file.
__attribute__((visibility("default"))) inline Mutex& nssEnumerationMutex() {
  static Mutex mutex;
  return mutex;
}

namespace {

constexpr std::size_t kFirstBuffer = 4096;
constexpr std::size_t kLargestBuffer = 64U << 20U;

std::string text(const char* start) { return start == nullptr ? "" : start; }

NssUser converted(const passwd& entry) {
  return {text(entry.pw_name),  text(entry.pw_gecos), text(entry.pw_dir),
          text(entry.pw_shell), entry.pw_uid,         entry.pw_gid};
}

NssGroup converted(const group& entry) {
  NssGroup result{text(entry.gr_name), {}, entry.gr_gid};
  for (char** member = entry.gr_mem; member != nullptr && *member != nullptr; ++member)
    result.members.emplace_back(*member);
  return result;
}

// What the functions of the switch return for an entry that is not there: see getpwnam(3).
bool meansAbsent(int error) {
  return error == 0 || error == ENOENT || error == ESRCH || error == EBADF || error == EPERM;
}

// Calls read(entry, buffer, size, result) with a buffer that is large enough, of `largest` bytes at
// most. Null entry: absent.
template <typename Entry, typename Read>
auto readEntry(std::vector<char>& buffer, Read&& read, std::size_t largest = kLargestBuffer)
    -> std::optional<decltype(converted(std::declval<Entry>()))> {
  for (;;) {
    Entry entry{};
    Entry* result = nullptr;
    const int error = errnoOf([&] {
      errno = read(&entry, buffer.data(), buffer.size(), &result);
      return errno == 0 ? 0 : -1;
    });
    if (error == 0 && result != nullptr) return converted(*result);
    if (error != ERANGE || buffer.size() >= largest) {
      if (meansAbsent(error)) return std::nullopt;
      throw DirectoryError(error, "the name service cannot answer: " +
                                      std::error_code(error, std::system_category()).message());
    }
    buffer.resize(buffer.size() * 2);
  }
}

template <typename Entry, typename Read>
auto lookUp(Read&& read) {
  std::vector<char> buffer(kFirstBuffer);
  return readEntry<Entry>(buffer, read);
}

// Rewinds an enumeration and closes it.
class Enumeration {
 public:
  Enumeration(void (*start)(), void (*end)()) : lock_(nssEnumerationMutex()), end_(end) { start(); }
  Enumeration(const Enumeration&) = delete;
  Enumeration& operator=(const Enumeration&) = delete;
  ~Enumeration() { end_(); }

 private:
  MutexLock lock_;
  void (*end_)();
};

template <typename Entry, typename Read>
auto enumerate(Read&& read) {
  std::vector<char> buffer(kFirstBuffer);
  std::vector<decltype(converted(std::declval<Entry>()))> all;
  while (auto entry = readEntry<Entry>(buffer, read)) all.push_back(std::move(*entry));
  return all;
}

}  // namespace

std::optional<NssUser> nssUser(const std::string& name) {
  return lookUp<passwd>([&](passwd* entry, char* buffer, std::size_t size, passwd** result) {
    return ::getpwnam_r(name.c_str(), entry, buffer, size, result);
  });
}

std::optional<NssUser> nssUser(uid_t uid) {
  return lookUp<passwd>([&](passwd* entry, char* buffer, std::size_t size, passwd** result) {
    return ::getpwuid_r(uid, entry, buffer, size, result);
  });
}

std::optional<NssGroup> nssGroup(const std::string& name) {
  return lookUp<group>([&](group* entry, char* buffer, std::size_t size, group** result) {
    return ::getgrnam_r(name.c_str(), entry, buffer, size, result);
  });
}

std::optional<NssGroup> nssGroup(gid_t gid) {
  return lookUp<group>([&](group* entry, char* buffer, std::size_t size, group** result) {
    return ::getgrgid_r(gid, entry, buffer, size, result);
  });
}

std::optional<gid_t> nssGroupId(const std::string& name, std::size_t bufferSize) {
  std::vector<char> buffer(bufferSize);
  const auto found = readEntry<group>(
      buffer,
      [&](group* entry, char* bytes, std::size_t size, group** result) {
        return ::getgrnam_r(name.c_str(), entry, bytes, size, result);
      },
      bufferSize);
  return found ? std::optional(found->gid) : std::nullopt;
}

std::vector<NssUser> nssUsers() {
  const Enumeration enumeration(::setpwent, ::endpwent);
  return enumerate<passwd>(::getpwent_r);
}

std::vector<NssGroup> nssGroups() {
  const Enumeration enumeration(::setgrent, ::endgrent);
  return enumerate<group>(::getgrent_r);
}

std::string textWithOwner(RefusedLink link) {
  try {
    if (const auto user = nssUser(link.owner)) link.ownerName = user->name;
  } catch (const DirectoryError&) {
    // The number says it, too.
  }
  return textOf(link);
}

}  // namespace paddock
