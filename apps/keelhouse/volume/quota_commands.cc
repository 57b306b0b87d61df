#include "keelhouse/volume/quota_commands.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <optional>
#include <system_error>

#include "base/system_call.h"
#include "base/text.h"
#include "keelhouse/access/principals.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/folder_settings.h"
#include "keelhouse/core/named_share.h"
#include "keelhouse/core/number_text.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/suggested_words.h"
#include "keelhouse/core/terminal_text.h"
#include "keelhouse/volume/quota_view.h"
#include "protocol/keys.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

struct Free {
  void operator()(char* text) const { std::free(text); }  // NOLINT(*-no-malloc): realpath's
};

Failure cannotFind(const std::string& path, int error) {
  return failure("the volume of " + path +
                 " cannot be found: " + std::generic_category().message(error));
}

// Without links: the folders above are those of the object itself.
std::string realPathOf(const std::string& path) {
  const std::unique_ptr<char, Free> real(::realpath(path.c_str(), nullptr));
  if (!real) throw cannotFind(path, errno);
  return real.get();
}

bool isMountRoot(const std::string& path) {
  struct statx attributes {};
  const int error =
      errnoOf([&] { return ::statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS, &attributes); });
  if (error != 0) throw cannotFind(path, error);
  return (attributes.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

}  // namespace

std::string volumeRootOf(const std::string& path) {
  std::string at = realPathOf(path);
  while (at != "/" && !isMountRoot(at)) at.resize(std::max<std::size_t>(at.rfind('/'), 1));
  return at;
}

void requireVolumeRoot(const std::string& path) {
  const std::string root = volumeRootOf(path);
  if (root == realPathOf(path)) return;
  throw failure(path + " is not the root of a volume\nIt lies on the volume " + root +
                ", and quotas are a whole volume's.");
}

namespace {

constexpr const char* kPlugin = "paddock_quotas";
constexpr std::int64_t kDamagedQuotaFile = -1;

// Without links: the files of a volume's quotas are made where it is mounted.
std::string volumePath(const Session& session, const std::string& typed) {
  const std::string path = folderPath(session, typed);
  requireVolumeRoot(path);
  return volumeRootOf(path);
}

// The quotas of a reply, where it has any.
const Dictionary& checked(const Dictionary& quotas, const std::string& volume) {
  if (const std::string* error = quotas.string(protocol::kQuotaError)) {
    throw errorFailure("the quotas of " + volume + " cannot be read", *error);
  }
  if (!quotas.contains(protocol::kIsEnabled)) {
    throw failure("the daemon's reply says nothing of the quotas of " + volume);
  }
  return quotas;
}

// What the kernel keeps; absent where it keeps nothing, or where it is not queried.
std::optional<Dictionary> usageOf(const Session& session, const std::string& volume) {
  auto usage = askIfLoaded(session, kPlugin, "getUsage", {{"path", volume}});
  if (!usage || usage->integer("status") == ENOTSUP) return std::nullopt;
  requireDone(*usage, "the quotas of " + volume + " cannot be read");
  return usage;
}

void print(const Session& session, const std::string& volume, Dictionary quotas) {
  auto usage = usageOf(session, volume);
  if (!session.json) {
    session.out << (usage ? formatUsage(volume, *usage) : formatQuotas(volume, quotas));
    return;
  }
  if (usage) {
    usage->erase("status");
    quotas.set("kernel", std::move(*usage));
  }
  session.out << wire::writeJsonPretty(quotas) << '\n';
}

// The reply of the switch. Files created by a refused one are removed again, where the daemon
// supports that.
Dictionary askToSwitch(const Session& session, const std::string& volume, bool on,
                       const std::string& action) {
  const auto reply =
      askIfLoaded(session, kPlugin, "setEnabled", {{"path", volume}, {protocol::kIsEnabled, on}});
  if (!reply) {
    return settingsPart(
        writeFolder(session, volume,
                    {{protocol::kVolumeQuotas, Dictionary{{protocol::kIsEnabled, on}}}}, action),
        protocol::kVolumeQuotas);
  }
  if (reply->contains("message")) requireDone(*reply, action);
  requireStatus(*reply, "status", action);
  const Dictionary* quotas = reply->dictionary(protocol::kVolumeQuotas);
  return quotas != nullptr ? *quotas : Dictionary{};
}

std::optional<std::uint64_t> parseCount(const std::string& word) {
  const auto number = parseInteger(word);
  return number && *number >= 0 ? std::optional(static_cast<std::uint64_t>(*number)) : std::nullopt;
}

std::uint64_t limitOf(const std::string& word, bool isCount) {
  if (word == "none" || word == "0") return 0;
  const auto amount = isCount ? parseCount(word) : parseSize(word);
  if (amount && *amount > 0) return *amount;
  throw usageFailure(
      "\"" + word + "\" is no limit of " +
      (isCount ? "files\nA number, or none." : "bytes\n10G, 500MiB, 1.5T, or none."));
}

// Limits are kept while quotas are off, and are not enforced.
Failure damagedFile(const std::string& action, const std::string& volume) {
  const std::string next = "Move it away and have a new one made: keelhouse quota on ";
  return daemonFailure(describeStatus(action + ": the quota file is damaged", kDamagedQuotaFile) +
                       "\n" + next + shellWord(volume));
}

void noteUnlessEnforced(const Session& session, const std::string& volume, bool isGroup) {
  const auto usage = usageOf(session, volume);
  const char* key = isGroup ? "groupsEnforced" : "usersEnforced";
  if (!usage || usage->boolean(key).value_or(false)) return;
  session.notes << "keelhouse: quotas of " << printable(volume)
                << " are off: the limits are kept, and hold nobody"
                << (isGroup ? ".\n" : " (keelhouse quota on " + shellWord(volume) + ").\n");
}

// A refusal because of an unknown name suggests the closest one.
void requireKnown(const Session& session, const LimitWords& words, const Dictionary& reply,
                  const std::string& action) {
  const std::string* message = reply.string("message");
  const std::string who =
      std::string(words.isGroup ? "the group " : "the user ") + words.name + ":";
  if (reply.integer("status") != ENOENT || message == nullptr || !message->starts_with(who)) return;
  try {
    requireSomebody(session, words.isGroup ? PrincipalType::group : PrincipalType::user,
                    words.name);
  } catch (const Failure& failed) {
    throw failure(action + ": " + failed.what());
  }
}

ExitStatus switchQuotas(const Session& session, const std::string& typedVolume, bool on) {
  const std::string volume = volumePath(session, typedVolume);
  const std::string action =
      "the quotas of " + volume + " cannot be switched " + (on ? "on" : "off");
  const Dictionary quotas = askToSwitch(session, volume, on, action);
  if (checked(quotas, volume).boolean(protocol::kIsEnabled) != on) {
    throw failure(action + ": they are still " + (on ? "off" : "on") +
                  ", although the daemon reported success");
  }
  print(session, volume, quotas);
  return ExitStatus::done;
}

}  // namespace

ExitStatus showQuotas(const Session& session, const std::string& typedVolume) {
  const std::string volume = volumePath(session, typedVolume);
  const Dictionary reply = readFolder(session, volume);
  const std::string action = "the quotas of " + volume + " cannot be read";
  if (reply.integer(protocol::kReadStatus) == kDamagedQuotaFile) throw damagedFile(action, volume);
  requireStatus(reply, protocol::kReadStatus, action);
  print(session, volume, checked(settingsPart(reply, protocol::kVolumeQuotas), volume));
  return ExitStatus::done;
}

ExitStatus switchQuotasOn(const Session& session, const std::string& volume) {
  return switchQuotas(session, volume, true);
}

ExitStatus switchQuotasOff(const Session& session, const std::string& volume) {
  return switchQuotas(session, volume, false);
}

ExitStatus setLimits(const Session& session, const LimitWords& words) {
  Dictionary request{{"softBytes", limitOf(words.soft, false)},
                     {"hardBytes", limitOf(words.hard, false)}};
  if (words.files.size() == 2) {
    request.set("softFiles", limitOf(words.files[0], true));
    request.set("hardFiles", limitOf(words.files[1], true));
  }
  const std::string volume = volumePath(session, words.volume);
  request.set("path", volume);
  request.set("name", words.name);
  request.set("group", words.isGroup);
  const std::string action = "the limits of " + words.name + " on " + volume + " cannot be set";
  const auto reply = askIfLoaded(session, kPlugin, "setLimits", request);
  if (!reply) throw failure(action + ": the plug-in paddock_quotas is not loaded");
  requireKnown(session, words, *reply, action);
  requireDone(*reply, action);
  const Dictionary* entry = reply->dictionary("entry");
  if (entry == nullptr) throw failure(action + ": the daemon's reply has no limits");
  session.out << (session.json ? wire::writeJsonPretty(*entry) + "\n"
                               : formatLimits(*entry, words.isGroup));
  noteUnlessEnforced(session, volume, words.isGroup);
  return ExitStatus::done;
}

}  // namespace paddock::keelhouse
