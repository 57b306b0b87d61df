#include "effectiveprivs/smb_door.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <sstream>
#include <string_view>
#include <system_error>

#include "base/text.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/process/bounded_program.h"

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

// The pattern for fnmatch(3), matching at least what it matches to Samba, in which brackets are
// themselves and "?" is a character.
std::string widened(const std::string& pattern) {
  std::string text;
  for (const char character : pattern) {
    if (character == '[' || character == ']' || character == '\\') text += '\\';
    const bool isOpen = character == '?' || static_cast<unsigned char>(character) >= 0x80;
    text += isOpen ? '*' : character;
  }
  return text;
}

std::vector<std::string> partsOf(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, '/');)
    if (!part.empty()) parts.push_back(part);
  return parts;
}

// Whether one of the patterns, with slashes between, may be for a name on the way.
bool isVetoed(const std::string& patterns, const std::string& inside) {
  for (const std::string& pattern : partsOf(patterns)) {
    if (pattern.find('%') != std::string::npos) return true;
    for (const std::string& name : partsOf(inside))
      if (::fnmatch(widened(pattern).c_str(), name.c_str(), FNM_CASEFOLD) == 0) return true;
  }
  return false;
}

// The users whom the share admits at all.
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
  return {};
}

// Why smbd gives the person the rights of another user; empty when it does not.
std::string disguise(const SmbShare& share, const SmbPerson& person) {
  const std::string user = share.value("force user");
  if (!user.empty() && asciiLower(user) != asciiLower(person.name)) return "force user = " + user;
  // With a plus sign it applies to existing members only, and grants them nothing.
  const std::string group = share.value("force group");
  const bool isForMembers = group.starts_with('+') && group.find('%') == std::string::npos;
  if (!group.empty() && !isForMembers && isInGroup(group, person) != Access::yes)
    return "force group = " + group;
  if (share.isOn("guest only", false)) return "guest only = yes";
  if (!person.kernel.isRoot() && isListed(share.value("admin users"), person) != Access::no)
    return "admin users has " + person.name;
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

// What the list does not grant is unknown where smbd may enforce only the kernel's ACLs.
DoorRights perhaps(const DoorRights& list) {
  const DoorRight why{Access::unknown,
                      "whether Samba goes by the list or by the kernel's ACL cannot be known"};
  return {list.read.access == Access::yes ? list.read : why,
          list.write.access == Access::yes ? list.write : why};
}

// What smbd's module enforces besides the kernel.
DoorRights judgedByModule(const SmbShare& share, const SmbObject& object) {
  const bool heedsKernel = !share.isOn("acl_xattr:ignore system acls", false);
  if (object.kind == ListKind::none) return heedsKernel ? DoorRights{} : object.mode;
  if (!heedsKernel || object.kind == ListKind::inForce) return object.list;
  return object.kind == ListKind::unsure ? perhaps(object.list) : DoorRights{};
}

// Modules that deny nothing, or only what is evaluated here.
bool isKnownModule(const std::string& module) {
  constexpr std::array<std::string_view, 14> kKnown{
      "acl_xattr", "aio_pthread",  "audit",         "btrfs",     "catia",
      "dirsort",   "extd_audit",   "full_audit",    "io_uring",  "recycle",
      "readahead", "shadow_copy2", "streams_xattr", "time_audit"};
  return std::find(kKnown.begin(), kKnown.end(), module.substr(0, module.find(':'))) !=
         kKnown.end();
}

// Restrictions other than lists, modes and names, which are not evaluated here.
DoorRights unjudged(const SmbShare& share, const SmbObject& object) {
  const std::string of = "share \"" + share.name + "\": ";
  const auto because = [&](const std::string& parameter) {
    return DoorRight{Access::unknown, of + parameter + " = " + share.value(parameter)};
  };
  DoorRights rights;
  for (const std::string& module : wordsOf(share.value("vfs objects"))) {
    if (isKnownModule(module)) continue;
    const bool isOfWriting = module == "readonly" || module == "worm";
    if (!isOfWriting) restrict(rights.read, because("vfs objects"));
    restrict(rights.write, because("vfs objects"));
  }
  if (isVetoed(share.value("veto files"), object.inside))
    restrict(rights, {because("veto files"), because("veto files")});
  for (const char* parameter : {"dont descend", "msdfs proxy"})
    if (!share.value(parameter).empty()) restrict(rights, {because(parameter), because(parameter)});
  for (const char* parameter : {"preexec close", "root preexec close"})
    if (share.isOn(parameter, false)) restrict(rights, {because(parameter), because(parameter)});
  return rights;
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
  const std::string as = disguise(share, person);
  const bool isHimself = as.empty();
  // smbd evaluates no list for root.
  const bool hasModule = share.value("vfs objects").find("acl_xattr") != std::string::npos;
  if (isHimself && hasModule && !person.kernel.isRoot())
    restrict(rights, judgedByModule(share, object));
  restrict(rights.write, writing(share, person));
  if (isHimself) restrict(rights, object.kernel);
  restrict(rights.write, object.room);
  // smbd reads the attribute also where "store dos attributes" is off.
  if (object.readOnly == samba::DosReadOnly::yes)
    restrict(rights.write, {Access::no, "it has the attribute \"read-only\" of Windows"});
  if (object.readOnly == samba::DosReadOnly::unknown)
    restrict(rights.write, {Access::unknown, "its attributes of Windows cannot be read"});
  if (!isHimself) restrict(rights, unknownRights("share \"" + share.name + "\": " + as));
  restrict(rights, unjudged(share, object));
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
    if (!real.empty() && isBelow(facts.path(), real))
      ways_.push_back({&share, facts.path().substr(real.size())});
  }
}

std::vector<std::string> SmbDoor::namesInLists() const {
  std::vector<std::string> names;
  for (const Way& way : ways_) {
    for (const char* list :
         {"valid users", "invalid users", "read list", "write list", "admin users", "force user"})
      for (std::string& word : wordsOf(way.share->value(list))) names.push_back(std::move(word));
    if (const std::string group = way.share->value("force group"); !group.empty())
      names.push_back((group.starts_with('+') ? "" : "+") + group);
  }
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
    // Whatever smbd would decide, it runs with the rights of the user.
    DoorRights rights = unknownRights(fault_);
    restrict(rights, kernel);
    return rights;
  }
  if (ways_.empty()) {
    const bool isOpen = std::any_of(
        configuration_.shares.begin(), configuration_.shares.end(),
        [](const SmbShare& one) { return one.value("path").find('%') != std::string::npos; });
    return isOpen ? unknownRights("a share's path depends on its client")
                  : noRights("not published over SMB");
  }
  SmbObject object{.list = list,
                   .kind = kind,
                   .kernel = kernel,
                   .mode = facts_.modeRights(person.kernel),
                   .room = facts_.seal(),
                   .readOnly = facts_.readOnly()};
  DoorRights best = noRights({});
  const auto improve = [](DoorRight& right, const DoorRight& other) {
    const bool isBetter = right.why.empty() || other.access == Access::yes ||
                          (right.access == Access::no && other.access == Access::unknown);
    if (right.access != Access::yes && isBetter) right = other;
  };
  for (const Way& way : ways_) {
    object.inside = way.inside;
    DoorRights rights;
    const DoorRight in = logOn(*way.share, person);
    restrict(rights, {in, in});
    restrict(rights, smbRights(*way.share, person, object));
    improve(best.read, rights.read);
    improve(best.write, rights.write);
    share += (share.empty() ? "" : ", ") + way.share->name;
  }
  return best;
}

}  // namespace paddock::effectiveprivs
