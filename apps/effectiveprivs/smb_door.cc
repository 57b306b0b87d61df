#include "effectiveprivs/smb_door.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <sstream>
#include <system_error>

#include "base/text.h"
#include "platform/linux/bounded_program.h"
#include "platform/linux/nss.h"

namespace paddock::effectiveprivs {

namespace {

constexpr std::chrono::seconds kPatience{10};
constexpr std::size_t kMostOutput = 64U << 20U;

std::string trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

// The words of a list of names, which are in quotation marks where they hold blanks.
std::vector<std::string> wordsOf(const std::string& list) {
  std::vector<std::string> words;
  std::string word;
  bool isQuoted = false;
  for (const char character : list + " ") {
    if (character == '"') {
      isQuoted = !isQuoted;
    } else if (!isQuoted && (character == ' ' || character == ',' || character == '\t')) {
      if (!word.empty()) words.push_back(word);
      word.clear();
    } else {
      word += character;
    }
  }
  return words;
}

Access isInGroup(const std::string& name, const SmbPerson& person) {
  const auto group = nssGroup(name);
  if (!group) return Access::unknown;
  const auto& gids = person.kernel.gids;
  return std::find(gids.begin(), gids.end(), group->gid) != gids.end() ? Access::yes : Access::no;
}

// Whether a word of a list of users is for the person.
Access isMeant(const std::string& word, const SmbPerson& person) {
  if (word.find_first_of("%\\") != std::string::npos || word.starts_with('&'))
    return Access::unknown;
  if (word.starts_with('@') || word.starts_with('+')) return isInGroup(word.substr(1), person);
  return asciiLower(word) == asciiLower(person.name) ? Access::yes : Access::no;
}

Access isListed(const std::string& list, const SmbPerson& person) {
  Access found = Access::no;
  for (const std::string& word : wordsOf(list)) {
    const Access meant = isMeant(word, person);
    if (meant == Access::yes) return meant;
    if (meant == Access::unknown) found = meant;
  }
  return found;
}

// Whom the share lets in at all.
DoorRight admission(const SmbShare& share, const SmbPerson& person) {
  const std::string of = "share \"" + share.name + "\": ";
  if (!share.isOn("available", true)) return {Access::no, of + "available = no"};
  const auto unsure = [&](const std::string& parameter) {
    return DoorRight{Access::unknown, of + "who is in \"" + parameter + "\" is not known"};
  };
  const Access invalid = isListed(share.value("invalid users"), person);
  if (invalid == Access::yes) return {Access::no, of + "invalid users has " + person.name};
  const std::string valid = share.value("valid users");
  const Access isValid = valid.empty() ? Access::yes : isListed(valid, person);
  if (isValid == Access::no) return {Access::no, of + "valid users has not " + person.name};
  if (invalid == Access::unknown) return unsure("invalid users");
  if (isValid == Access::unknown) return unsure("valid users");
  if (!share.value("force user").empty())
    return {Access::unknown, of + "force user = " + share.value("force user")};
  return {};
}

DoorRight writing(const SmbShare& share, const SmbPerson& person) {
  const std::string of = "share \"" + share.name + "\": ";
  const Access readers = isListed(share.value("read list"), person);
  const Access writers = isListed(share.value("write list"), person);
  if (writers == Access::yes) return {};
  if (readers == Access::yes) return {Access::no, of + "read list has " + person.name};
  if (share.isOn("read only", true)) return {writers, of + "read only = yes"};
  if (readers == Access::unknown)
    return {Access::unknown, of + "who is in \"read list\" is not known"};
  return {};
}

// What smbd's module goes by beside the kernel.
DoorRights judgedByModule(const SmbShare& share, const SmbObject& object) {
  const bool heedsKernel = !share.isOn("acl_xattr:ignore system acls", false);
  if (object.kind == ListKind::none) return heedsKernel ? DoorRights{} : object.mode;
  return object.kind == ListKind::overridden && heedsKernel ? DoorRights{} : object.list;
}

bool isBelow(const std::string& path, const std::string& folder) {
  return path == folder || folder == "/" || path.starts_with(folder + "/");
}

std::string realPathOf(const std::string& path) {
  char* real = ::realpath(path.c_str(), nullptr);
  if (real == nullptr) return {};
  std::string text = real;
  std::free(real);  // NOLINT(cppcoreguidelines-no-malloc): realpath(3) says so
  return text;
}

}  // namespace

std::string SmbShare::value(const std::string& parameter, const std::string& usual) const {
  const auto found = parameters.find(parameter);
  return found != parameters.end() ? found->second : usual;
}

bool SmbShare::isOn(const std::string& parameter, bool usual) const {
  const std::string text = asciiLower(value(parameter, usual ? "yes" : "no"));
  return text == "yes" || text == "true" || text == "1";
}

SmbConfiguration parseSmbConfiguration(const std::string& text) {
  SmbConfiguration configuration;
  SmbSection* section = nullptr;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    const std::string clean = trimmed(line);
    const std::size_t equals = clean.find('=');
    if (line.starts_with('[') && clean.ends_with(']')) {
      const std::string name = clean.substr(1, clean.size() - 2);
      if (asciiLower(name) == "global") {
        section = &configuration.global;
      } else {
        configuration.shares.push_back({name, {}});
        section = &configuration.shares.back().parameters;
      }
    } else if (section != nullptr && equals != std::string::npos) {
      (*section)[trimmed(clean.substr(0, equals))] = trimmed(clean.substr(equals + 1));
    }
  }
  for (SmbShare& share : configuration.shares)
    share.parameters.insert(configuration.global.begin(), configuration.global.end());
  return configuration;
}

DoorRights smbRights(const SmbShare& share, const SmbPerson& person, const SmbObject& object) {
  DoorRights rights;
  const DoorRight in = admission(share, person);
  restrict(rights, {in, in});
  // smbd asks no list of root, and whoever "admin users" has is root to it.
  const bool isRoot = person.kernel.isRoot();
  const bool hasModule = share.value("vfs objects").find("acl_xattr") != std::string::npos;
  if (hasModule && !isRoot) restrict(rights, judgedByModule(share, object));
  restrict(rights.write, writing(share, person));
  restrict(rights, object.kernel);
  if (!isRoot && isListed(share.value("admin users"), person) != Access::no)
    restrict(rights, unknownRights("share \"" + share.name + "\": admin users has " + person.name));
  return rights;
}

SmbDoor::SmbDoor(const std::string& root, const PathFacts& facts, SambaAccountReader& accounts)
    : facts_(facts), accounts_(accounts) {
  const std::string program = root + "/usr/bin/testparm";
  const BoundedOutcome ended = runBoundedProgram(program, {"-s"}, kPatience, kMostOutput);
  if (ended.status != 0 || ended.exitStatus != 0) {
    fault_ = program + ": " +
             (ended.status != 0 ? std::generic_category().message(ended.status)
                                : "ended with status " + std::to_string(ended.exitStatus));
    return;
  }
  configuration_ = parseSmbConfiguration(ended.output);
  for (const SmbShare& share : configuration_.shares) {
    const std::string path = share.value("path");
    const std::string real = path.empty() ? std::string() : realPathOf(path);
    if (!real.empty() && isBelow(facts.path(), real)) shares_.push_back(&share);
  }
}

std::vector<std::string> SmbDoor::namesInLists() const {
  std::vector<std::string> names;
  for (const SmbShare* share : shares_)
    for (const char* list :
         {"valid users", "invalid users", "read list", "write list", "admin users"})
      for (std::string& word : wordsOf(share->value(list))) names.push_back(std::move(word));
  return names;
}

std::vector<std::uint32_t> SmbDoor::uidsThatMatter() const {
  std::vector<std::uint32_t> uids;
  for (const std::string& name : namesInLists())
    if (const auto user = nssUser(name)) uids.push_back(user->uid);
  return uids;
}

std::vector<std::uint32_t> SmbDoor::gidsThatMatter() const {
  std::vector<std::uint32_t> gids;
  for (const std::string& name : namesInLists()) {
    const bool isGroup = name.starts_with('@') || name.starts_with('+');
    if (const auto group = isGroup ? nssGroup(name.substr(1)) : std::nullopt)
      gids.push_back(group->gid);
  }
  return gids;
}

DoorRight SmbDoor::logOn(const SmbShare& share, const SmbPerson& person) const {
  if (person.isAnybody) return {};
  if (person.name.empty()) return {Access::no, "no account has the uid"};
  const auto& global = configuration_.global;
  const auto role = global.find("server role");
  const auto security = global.find("security");
  const bool isAlone =
      (role == global.end() || asciiLower(role->second).starts_with("standalone")) &&
      (security == global.end() || asciiLower(security->second) == "user");
  std::string why;
  const auto accounts = isAlone ? accounts_.read(why) : nullptr;
  if (!accounts) return {};
  const auto& users = accounts->users;
  const bool isThere = std::any_of(
      users.begin(), users.end(), [&](const SambaAccount& one) { return one.name == person.name; });
  if (isThere) return {};
  const bool mayBeGuest = share.isOn("guest ok", false);
  return {mayBeGuest ? Access::unknown : Access::no,
          person.name + " has no account in Samba (smbpasswd -a " + person.name + ")"};
}

DoorRights SmbDoor::rightsOf(const SmbPerson& person, const ListRights& list, ListKind kind,
                             std::string& share) const {
  const DoorRights kernel = facts_.kernelRights(person.kernel);
  if (!fault_.empty()) {
    // Whatever smbd would say, it works with the rights of the user.
    DoorRights rights = unknownRights(fault_);
    restrict(rights, kernel);
    return rights;
  }
  if (shares_.empty()) {
    const bool isOpen = std::any_of(
        configuration_.shares.begin(), configuration_.shares.end(),
        [](const SmbShare& one) { return one.value("path").find('%') != std::string::npos; });
    return isOpen ? unknownRights("a share's path depends on its client")
                  : noRights("not published over SMB");
  }
  const SmbObject object{list, kind, kernel, facts_.modeRights(person.kernel)};
  DoorRights best = noRights({});
  const auto improve = [](DoorRight& right, const DoorRight& other) {
    const bool isBetter = right.why.empty() || other.access == Access::yes ||
                          (right.access == Access::no && other.access == Access::unknown);
    if (right.access != Access::yes && isBetter) right = other;
  };
  for (const SmbShare* one : shares_) {
    DoorRights rights;
    const DoorRight in = logOn(*one, person);
    restrict(rights, {in, in});
    restrict(rights, smbRights(*one, person, object));
    improve(best.read, rights.read);
    improve(best.write, rights.write);
    share += (share.empty() ? "" : ", ") + one->name;
  }
  return best;
}

}  // namespace paddock::effectiveprivs
