#include "platform/linux/accounts/account_lines.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "base/text.h"
#include "platform/linux/process/case_fold.h"

namespace paddock {

namespace {

constexpr std::uint32_t kUndefinedId = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint32_t kNoGroup = 65534;  // "nogroup" of every Debian
constexpr std::uint32_t kUsersGroup = 100;
// Below are the host's own; libnss-extrausers does not show them either.
constexpr std::uint32_t kFirstId = 500;
constexpr std::size_t kLongestName = 255;  // LOGIN_NAME_MAX without its NUL
// What they give access to: the administrator's commands, the raw disks and memory, containers and
// machines that may mount the host's files, and the passwords' hashes.
constexpr std::array<std::string_view, 15> kPrivilegedGroups{
    "adm",     "admin",        "disk", "docker", "incus",  "incus-admin", "kmem", "kvm",
    "libvirt", "libvirt-qemu", "lxd",  "root",   "shadow", "sudo",        "wheel"};
constexpr const char* kNoHome = "/nonexistent";
constexpr const char* kNoShell = "/usr/sbin/nologin";

bool canBeField(const std::string& text) {
  return text.find(':') == std::string::npos && printable(text) == text;
}

bool canBePath(const std::string& text) { return text.starts_with('/') && canBeField(text); }

bool canBeName(const std::string& name) {
  if (name.empty() || name.size() > kLongestName || !canBeField(name)) return false;
  if (name.find_first_of(",/") != std::string::npos || name == "." || name == "..") return false;
  const std::string outside = " +-#";
  if (outside.find(name.front()) != std::string::npos || name.back() == ' ') return false;
  return name.find_first_not_of("0123456789") != std::string::npos;
}

bool isLoginShell(const std::string& shell) {
  const std::string program = shell.substr(shell.rfind('/') + 1);
  return program != "nologin" && program != "false";
}

bool isHash(const std::string& text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7f; }) &&
         text.find(':') == std::string::npos;
}

// Why a record is left out.
struct Unfit {
  std::string why;
};

std::string quoted(const std::string& text) { return "\"" + printable(text) + "\""; }

std::string belowFirst(const std::string& what, std::uint32_t id) {
  return what + " is " + std::to_string(id) + ", and those below " + std::to_string(kFirstId) +
         " are the host's own";
}

std::uint32_t numberIn(const std::string& attribute, const std::string& text) {
  const auto number = parseInteger(text);
  if (!number || *number < 0 || *number >= kUndefinedId)
    throw Unfit{attribute + " " + quoted(text) + " is no id"};
  return static_cast<std::uint32_t>(*number);
}

// The accounts of one kind: their names and ids are given once.
class Register {
 public:
  Register(PrincipalType type, HostAccounts& host) : type_(type), host_(host) {}

  // Throws Unfit. Enters nothing.
  void requireFree(const std::string& name, std::uint32_t id) const {
    const std::string kind = type_ == PrincipalType::user ? "user" : "group";
    if (!canBeName(name)) throw Unfit{"its name cannot be that of a " + kind};
    if (id < kFirstId) throw Unfit{belowFirst("its id", id)};
    if (host_.idOf(type_, name)) throw Unfit{"the host has a " + kind + " of this name"};
    if (host_.has({type_, id}))
      throw Unfit{"the host has a " + kind + " with the id " + std::to_string(id)};
    if (ids_.contains(id)) throw Unfit{"an earlier record has the id " + std::to_string(id)};
  }
  void enter(std::uint32_t id) { ids_.insert(id); }

 private:
  PrincipalType type_;
  HostAccounts& host_;
  std::unordered_set<std::uint32_t> ids_;
};

class Writer {
 public:
  Writer(const AccountRecords& records, HostAccounts& host) : records_(records), host_(host) {}

  AccountLines write() {
    for (const UserRecord& user : records_.users) {
      const bool written = isWritten("user", user, [&] { writeUser(user); });
      for (const std::string& name : user.names)
        users_.try_emplace(caseFold(name), NamedUser{&user, written});
    }
    for (const GroupRecord& group : records_.groups)
      isWritten("group", group, [&] { writeGroup(group); });
    return std::move(lines_);
  }

 private:
  struct NamedUser {
    const UserRecord* record;
    bool isWritten;
  };

  void remark(const std::string& kind, const std::string& name, const std::string& text) {
    lines_.remarks.push_back(kind + " " + quoted(name) + text);
  }

  template <typename Record, typename Write>
  bool isWritten(const std::string& kind, const Record& record, Write&& write) {
    if (!record.id) return false;
    try {
      write();
      return true;
    } catch (const Unfit& unfit) {
      remark(kind, record.names.front(), " is left out: " + unfit.why);
      return false;
    }
  }

  void writeUser(const UserRecord& user) {
    const std::string& name = user.names.front();
    const std::uint32_t id = numberIn("UniqueID", *user.id);
    registeredUsers_.requireFree(name, id);
    const std::uint32_t group = user.group ? numberIn("PrimaryGroupID", *user.group) : kNoGroup;
    requireHarmless(group);
    const std::string home = pathIn("NFSHomeDirectory", user.home, kNoHome);
    const std::string shell = pathIn("UserShell", user.shell, kNoShell);
    registeredUsers_.enter(id);
    lines_.passwd += name + ":x:" + std::to_string(id) + ":" + std::to_string(group) + ":" +
                     commentOf(user) + ":" + home + ":" + shell + "\n";
    const bool logsIn = isLoginShell(shell) && user.passwordHash && isHash(*user.passwordHash);
    lines_.shadow += name + ":" + (logsIn ? *user.passwordHash : "*") + ":::::::\n";
  }

  void requireHarmless(std::uint32_t primaryGroup) {
    if (primaryGroup == kUsersGroup) return;
    if (primaryGroup < kFirstId) throw Unfit{belowFirst("its PrimaryGroupID", primaryGroup)};
    for (const std::string_view name : kPrivilegedGroups) {
      if (host_.idOf(PrincipalType::group, std::string(name)) == primaryGroup) {
        throw Unfit{"its PrimaryGroupID " + std::to_string(primaryGroup) +
                    " is that of the host's group " + quoted(std::string(name)) +
                    ", whose members can become root"};
      }
    }
  }

  void writeGroup(const GroupRecord& group) {
    const std::string& name = group.names.front();
    const std::uint32_t id = numberIn("PrimaryGroupID", *group.id);
    registeredGroups_.requireFree(name, id);
    if (isPrivilegedGroupName(name))
      throw Unfit{"members of a group of this name can become root on most hosts"};
    registeredGroups_.enter(id);
    lines_.group += name + ":x:" + std::to_string(id) + ":" + membersOf(group) + "\n";
  }

  static std::string pathIn(const std::string& attribute, const std::optional<std::string>& text,
                            const char* otherwise) {
    if (!text || text->empty()) return otherwise;
    if (!canBePath(*text)) throw Unfit{attribute + " " + quoted(*text) + " cannot be written"};
    return *text;
  }

  std::string commentOf(const UserRecord& user) {
    if (!user.realName) return {};
    if (canBeField(*user.realName)) return *user.realName;
    remark("user", user.names.front(),
           ": RealName " + quoted(*user.realName) + " cannot be written");
    return {};
  }

  std::string membersOf(const GroupRecord& group) {
    std::string list;
    std::unordered_set<std::string> listed;
    for (const std::string& member : group.members) {
      const auto name = memberNamed(member);
      if (!name) {
        remark("group", group.names.front(), ": its member " + quoted(member) + " is left out");
      } else if (listed.insert(*name).second) {
        list += (list.empty() ? "" : ",") + *name;
      }
    }
    return list;
  }

  std::optional<std::string> memberNamed(const std::string& member) {
    const auto found = users_.find(caseFold(member));
    if (found == users_.end()) return canBeName(member) ? std::optional(member) : std::nullopt;
    const UserRecord& user = *found->second.record;
    const std::string& name = user.names.front();
    if (found->second.isWritten) return name;
    if (!canBeName(name) || (user.id && !isHostsOwn(name, *user.id))) return std::nullopt;
    return name;
  }

  bool isHostsOwn(const std::string& name, const std::string& id) {
    const auto hosts = host_.idOf(PrincipalType::user, name);
    return hosts && parseInteger(id) == *hosts;
  }

  const AccountRecords& records_;
  HostAccounts& host_;
  AccountLines lines_;
  Register registeredUsers_{PrincipalType::user, host_};
  Register registeredGroups_{PrincipalType::group, host_};
  std::unordered_map<std::string, NamedUser> users_;  // by folded name
};

}  // namespace

bool isPrivilegedGroupName(std::string_view name) {
  const std::string lower = asciiLower(name);
  return std::find(kPrivilegedGroups.begin(), kPrivilegedGroups.end(), lower) !=
         kPrivilegedGroups.end();
}

AccountLines accountLines(const AccountRecords& records, HostAccounts& host) {
  return Writer(records, host).write();
}

}  // namespace paddock
