#include "paddock_denials/denials_handler.h"

#include <cerrno>
#include <map>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "paddock/host.h"
#include "paddock/sys_logger.h"
#include "paddock_denials/kernel_side.h"
#include "paddock_denials/listed_entries.h"
#include "paddock_denials/strict_lists.h"
#include "platform/directory.h"
#include "platform/host/host_services.h"
#include "platform/linux/accounts/linux_accounts.h"
#include "platform/linux/accounts/linux_membership.h"
#include "platform/linux/configured_options.h"
#include "platform/logger.h"

namespace paddock {

namespace {

constexpr const char* kStrict = "strict";
constexpr std::size_t kMostNames = 1000;

Dictionary failureReply(int status, const std::string& message) {
  return {{"status", status}, {"message", message}};
}

// What the step returns with "status" 0, or the reply of what it throws.
template <typename Step>
Dictionary replyOf(Step step) {
  try {
    Dictionary reply = step();
    reply.set("status", 0);
    return reply;
  } catch (const DenialFailure& failure) {
    return failureReply(failure.status(), failure.what());
  } catch (const DirectoryError& error) {
    logMessage(kLogError, std::string("paddock_denials: ") + error.what());
    return failureReply(error.status().value_or(EIO), error.what());
  }
}

std::string pathIn(const Dictionary& request) {
  const std::string* path = request.string("path");
  if (path == nullptr || path->empty() || path->front() != '/') {
    throw DenialFailure(EINVAL, "an absolute \"path\" is needed");
  }
  return *path;
}

// Caches the members of groups for the evaluation of one list.
MembersOf askedOnce(const MembersOf& membersOf) {
  auto known = std::make_shared<std::map<std::uint32_t, std::vector<Person>>>();
  return [known, membersOf](std::uint32_t gid) {
    const auto found = known->find(gid);
    return found != known->end() ? found->second
                                 : known->emplace(gid, membersOf(gid)).first->second;
  };
}

struct JudgedList {
  Array acl;
  std::vector<acl::Rule> entries;
  KernelSide kernel;
};

JudgedList judgedList(const DenialServices& services, const std::string& path) {
  JudgedList list;
  list.acl = readList(*services.siblings, path);
  list.entries = listedEntries(*services.membership, list.acl);
  const int error = services.readKernelSide(path, list.kernel);
  if (error != 0) throw DenialFailure(error, path + ": " + std::generic_category().message(error));
  return list;
}

}  // namespace

struct DenialsRequestHandler::OwnServices {
  LinuxDirectoryService directory{configuredDirectory(host().configuration(), host().root())};
  LinuxMembership membership{directory};
  LinuxAccounts accounts{directory};
  HostPluginCommands siblings;
};

DenialsRequestHandler::DenialsRequestHandler() : own_(std::make_unique<OwnServices>()) {
  services_ = {&own_->siblings, &own_->membership, &own_->accounts, readKernelSide, membersOfGroup};
}

DenialsRequestHandler::DenialsRequestHandler(DenialServices services)
    : services_(std::move(services)) {}

DenialsRequestHandler::~DenialsRequestHandler() = default;

std::vector<PluginRequestHandler::Operation> DenialsRequestHandler::operations() const {
  return {{"getDenied", false}, {"setStrict", true}, {"refreshStrict", true}};
}

Dictionary DenialsRequestHandler::performOperation(std::string_view name,
                                                   const Dictionary& request) {
  if (name == "getDenied") return replyOf([&] { return getDenied(pathIn(request)); });
  const MutexLock lock(changing_);
  if (name == "refreshStrict") {
    return replyOf([&] {
      changing_.assertHeld();
      return refreshStrict();
    });
  }
  if (name != "setStrict") throw std::invalid_argument("no operation " + std::string(name));
  return replyOf([&] {
    const auto strict = request.boolean(kStrict);
    if (!strict) throw DenialFailure(EINVAL, "\"strict\" is needed");
    changing_.assertHeld();
    return setStrict(pathIn(request), *strict);
  });
}

std::int64_t DenialsRequestHandler::doIdleAtCount(std::uint64_t count) {
  if (count % kRefreshEach == kFirstRefresh) {
    const MutexLock lock(changing_);
    refreshStrict();
  }
  return PluginRequestHandler::doIdleAtCount(count);
}

Dictionary DenialsRequestHandler::getDenied(const std::string& path) {
  const JudgedList list = judgedList(services_, path);
  Array denials;
  for (const GroupDenial& denial :
       passedDenials(list.entries, list.kernel, askedOnce(services_.membersOf))) {
    Array people;
    for (const Person& person : denial.letIn) {
      if (people.size() < kMostNames) people.emplace_back(person.name);
    }
    Dictionary one{{"number", static_cast<std::int64_t>(denial.entry + 1)},
                   {"gid", denial.gid},
                   {"group", groupName(denial.gid)},
                   {"people", std::move(people)},
                   {"count", static_cast<std::int64_t>(denial.letIn.size())}};
    if (denial.owner) one.set("owner", denial.owner->name);
    denials.emplace_back(std::move(one));
  }
  return {{"denials", std::move(denials)}, {kStrict, remembered().contains(path)}};
}

Dictionary DenialsRequestHandler::setStrict(const std::string& path, bool strict) {
  Dictionary lists = remembered();
  if (!strict) {
    if (lists.erase(path)) remember(std::move(lists));
    return getDenied(path);
  }
  refresh(path);  // remembers it, unless it throws
  std::int64_t written = 0;
  lists = remembered();
  if (const Dictionary* form = lists.dictionary(path)) {
    for (const auto& [gid, uids] : writtenDenials(*form)) {
      written += static_cast<std::int64_t>(uids.size());
    }
  }
  Dictionary reply = getDenied(path);
  reply.set("written", written);
  return reply;
}

bool DenialsRequestHandler::refresh(const std::string& path, int triesLeft) {
  Dictionary lists = remembered();
  const Dictionary* form = lists.dictionary(path);
  const JudgedList list = judgedList(services_, path);
  const StrictList strict =
      strictList(list.acl, list.entries, list.kernel, askedOnce(services_.membersOf),
                 form != nullptr ? writtenDenials(*form) : WrittenDenials{});
  if (strict.denials == 0) {
    logMessage(kLogInformation, "The list of " + path +
                                    " denies no group any more, and is not kept strict any longer");
    lists.erase(path);
    remember(std::move(lists));
    return false;
  }
  if (strict.isChanged) {
    // The lookup of members may take seconds; concurrent changes by others are preserved.
    if (triesLeft > 0 && readList(*services_.siblings, path) != list.acl)
      return refresh(path, triesLeft - 1);
    writeList(*services_.siblings, path, strict.acl);
    logMessage(kLogInformation, "The list of " + path + " denies by name who is in a denied group");
  }
  lists.set(path, rememberedForm(strict.written));
  remember(std::move(lists));
  return strict.isChanged;
}

Dictionary DenialsRequestHandler::refreshStrict() {
  Array results;
  for (const auto& [path, value] : remembered()) {
    Dictionary result{{"path", path}};
    const Dictionary reply = replyOf([&, &folder = path] {
      changing_.assertHeld();
      return Dictionary{{"changed", refresh(folder)}};
    });
    if (reply.integer("status") != 0) {
      logMessage(kLogWarning,
                 "The list of " + path + " cannot be kept strict: " + *reply.string("message"));
    }
    for (const auto& [key, part] : reply) result.set(key, part);
    results.emplace_back(std::move(result));
  }
  return {{"lists", std::move(results)}};
}

Dictionary DenialsRequestHandler::remembered() {
  const Value lists = context().get(kStrict);
  return lists.dictionary() != nullptr ? *lists.dictionary() : Dictionary{};
}

void DenialsRequestHandler::remember(Dictionary strict) {
  context().set(kStrict, std::move(strict));
  context().set(Context::kDirtyKey, true);
}

std::string DenialsRequestHandler::groupName(std::uint32_t gid) {
  std::string name;
  return services_.accounts->getgrgid(gid, name) == 0 ? name : std::to_string(gid);
}

}  // namespace paddock
