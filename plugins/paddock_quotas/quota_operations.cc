#include "paddock_quotas/quota_operations.h"

#include <cerrno>
#include <chrono>
#include <limits>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "base/text.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/files/path_walk.h"

namespace paddock {

namespace {

constexpr std::uint32_t kUsers = 0;
constexpr std::uint32_t kGroups = 1;
constexpr std::uint32_t kStateOn = 1;

bool hasAnything(const QuotaRecord& record) {
  return record.usedBytes != 0 || record.usedFiles != 0 || record.softBytes != 0 ||
         record.hardBytes != 0 || record.softFiles != 0 || record.hardFiles != 0;
}

std::string nameOf(const QuotaServices& services, std::uint32_t type, std::uint32_t id) {
  std::string name;
  const int unknown = type == kUsers ? services.accounts->getpwuid(id, name)
                                     : services.accounts->getgrgid(id, name);
  return unknown == 0 ? name : std::to_string(id);
}

Dictionary entryOf(const QuotaServices& services, std::uint32_t type, const QuotaRecord& record) {
  return {{"id", record.id},
          {"name", nameOf(services, type, record.id)},
          {"usedBytes", record.usedBytes},
          {"softBytes", record.softBytes},
          {"hardBytes", record.hardBytes},
          {"bytesGraceEnd", record.bytesGraceEnd},
          {"usedFiles", record.usedFiles},
          {"softFiles", record.softFiles},
          {"hardFiles", record.hardFiles},
          {"filesGraceEnd", record.filesGraceEnd}};
}

std::string textOf(int error) { return std::generic_category().message(error); }

// Adds what is kept of one type; ENOTSUP where nothing is.
int addType(const QuotaServices& services, const std::string& path, std::uint32_t type,
            Dictionary& reply) {
  std::vector<QuotaRecord> records;
  if (const int error = services.records->list(path, type, records); error != 0) return error;
  Array entries;
  for (const QuotaRecord& record : records) {
    if (record.id != 0 && hasAnything(record)) {
      entries.emplace_back(entryOf(services, type, record));
    }
  }
  std::uint32_t state = 0;
  const int unknown =
      services.control->quotactl(path, quotaCommand(kQuotaStateCommand, type), 0, &state);
  reply.set(type == kUsers ? "users" : "groups", std::move(entries));
  reply.set(type == kUsers ? "usersEnforced" : "groupsEnforced", unknown == 0 && state == kStateOn);
  return 0;
}

// Returns 0 and the id of the name, or of a number that is no name.
int findId(const QuotaServices& services, std::uint32_t type, const std::string& name,
           std::uint32_t& id) {
  const int unknown = type == kUsers ? services.accounts->getpwnam(name, id)
                                     : services.accounts->getgrnam(name, id);
  if (unknown != ENOENT) return unknown;
  const auto number = parseInteger(name);
  // The largest number is the kernel's invalid id.
  if (!number || *number < 0 || *number >= std::numeric_limits<std::uint32_t>::max()) return ENOENT;
  id = static_cast<std::uint32_t>(*number);
  return 0;
}

// The pair under the two keys: absent when neither is there. False for what is no amount.
bool readPair(const Dictionary& request, const char* softKey, const char* hardKey,
              std::optional<LimitPair>& pair) {
  LimitPair limits;
  for (const auto& [key, limit] :
       {std::pair{softKey, &limits.soft}, std::pair{hardKey, &limits.hard}}) {
    if (!request.contains(key)) continue;
    const auto number = request.integer(key);
    if (!number || *number < 0) return false;
    *limit = static_cast<std::uint64_t>(*number);
    pair = limits;
  }
  return true;
}

struct LimitRequest {
  std::string path;
  std::string name;
  std::uint32_t type = kUsers;
  QuotaLimits limits;
};

// Empty and the request, or what is wrong with it.
std::string readLimitRequest(const Dictionary& request, LimitRequest& wanted) {
  const std::string* path = request.string("path");
  const std::string* name = request.string("name");
  if (path == nullptr) return "\"path\" is needed";
  if (name == nullptr || name->empty()) return "\"name\" is needed";
  if (request.contains("group") && !request.boolean("group")) return "\"group\" is no boolean";
  wanted = {*path, *name, request.boolean("group").value_or(false) ? kGroups : kUsers, {}};
  if (!readPair(request, "softBytes", "hardBytes", wanted.limits.bytes) ||
      !readPair(request, "softFiles", "hardFiles", wanted.limits.files)) {
    return "a limit is no number from 0 on";
  }
  if (!wanted.limits.bytes && !wanted.limits.files) return "no limit is given";
  if (!areLimits(wanted.limits)) return "a soft limit is above the hard one";
  return {};
}

// Which link on the way keeps a volume from being changed by that path; empty when none does.
std::string refusalOf(const std::string& path) {
  FileDescriptor object;
  std::optional<RefusedLink> refused;
  (void)holdObject(path, PathUse::changing, object, &refused);
  return refused ? textWithOwner(*refused) : std::string();
}

}  // namespace

Dictionary quotaFailure(int status, const std::string& message) {
  return {{"status", status}, {"message", message}};
}

Dictionary getQuotaUsage(const QuotaServices& services, const Dictionary& request) {
  const std::string* path = request.string("path");
  if (path == nullptr) return quotaFailure(EINVAL, "\"path\" is needed");
  if (services.records == nullptr) {
    return quotaFailure(ENOTSUP, "usage is counted alone (quota_backend = \"accounting\")");
  }
  Dictionary reply{{"status", 0}};
  int kept = ENOTSUP;
  for (const std::uint32_t type : {kUsers, kGroups}) {
    const int error = addType(services, *path, type, reply);
    if (error != 0 && error != ENOTSUP) return quotaFailure(error, *path + ": " + textOf(error));
    if (error == 0) kept = 0;
  }
  if (kept != 0) return quotaFailure(kept, "the kernel keeps no quotas of " + *path);
  reply.set("time",
            static_cast<std::int64_t>(std::chrono::system_clock::to_time_t(services.clock->now())));
  return reply;
}

Dictionary setQuotaLimits(const QuotaServices& services, const Dictionary& request) {
  LimitRequest wanted;
  if (const std::string wrong = readLimitRequest(request, wanted); !wrong.empty()) {
    return quotaFailure(EINVAL, wrong);
  }
  if (services.records == nullptr) {
    return quotaFailure(ENOTSUP, "nothing enforces limits (quota_backend = \"accounting\")");
  }
  const std::string kind = wanted.type == kUsers ? "user" : "group";
  std::uint32_t id = 0;
  if (const int error = findId(services, wanted.type, wanted.name, id); error != 0) {
    return quotaFailure(error, "the " + kind + " " + wanted.name + ": " + textOf(error));
  }
  if (id == 0) return quotaFailure(EINVAL, "limits of the " + kind + " 0 hold for nobody");
  if (const std::string refusal = refusalOf(wanted.path); !refusal.empty()) {
    return quotaFailure(EACCES, wanted.path + ": " + refusal);
  }
  int error = services.records->setLimits(wanted.path, wanted.type, id, wanted.limits);
  QuotaRecord record;
  if (error == 0) error = services.records->find(wanted.path, wanted.type, id, record);
  if (error == ENOTSUP) {
    return quotaFailure(error, "the kernel keeps no quotas of " + kind + "s of " + wanted.path);
  }
  if (error != 0) return quotaFailure(error, wanted.path + ": " + textOf(error));
  return {{"status", 0}, {"entry", entryOf(services, wanted.type, record)}};
}

}  // namespace paddock
