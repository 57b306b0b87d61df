#include "samba/smb_parameters.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/text.h"
#include "samba/samba_text.h"

namespace paddock::samba {

namespace {

constexpr std::string_view kBlanks = " \t";

enum class Kind { text, number };

struct Allowed {
  std::string_view key;
  Kind kind = Kind::text;
};

// How this share is served: caches and locks, what is shown of names, who may connect.
constexpr Allowed kAllowed[] = {
    {"access based share enum"},
    {"aio read size", Kind::number},
    {"aio write size", Kind::number},
    {"allocation roundup size", Kind::number},
    {"available"},
    {"block size", Kind::number},
    {"blocking locks"},
    {"case sensitive"},
    {"csc policy"},
    {"default case"},
    {"delete readonly"},
    {"delete veto files"},
    {"directory name cache size", Kind::number},
    {"dont descend"},
    {"dos filetime resolution"},
    {"dos filetimes"},
    {"durable handles"},
    {"ea support"},
    {"fake directory create times"},
    {"follow symlinks"},
    {"fstype"},
    {"hide dot files"},
    {"hide files"},
    {"hide new files timeout", Kind::number},
    {"hide special files"},
    {"hide unreadable"},
    {"hide unwriteable files"},
    {"honor change notify privilege"},
    {"hosts deny"},
    {"invalid users"},
    {"kernel oplocks"},
    {"kernel share modes"},
    {"level2 oplocks"},
    {"locking"},
    {"mangled names"},
    {"mangling char"},
    {"max connections", Kind::number},
    {"oplocks"},
    {"posix locking"},
    {"preserve case"},
    {"read list"},
    {"server smb encrypt"},
    {"short preserve case"},
    {"smb encrypt"},
    {"smbd async dosmode"},
    {"smbd getinfo ask sharemode"},
    {"smbd max async dosmode", Kind::number},
    {"smbd max xattr size", Kind::number},
    {"smbd search ask sharemode"},
    {"strict allocate"},
    {"strict locking"},
    {"strict rename"},
    {"strict sync"},
    {"sync always"},
    {"use sendfile"},
    {"valid users"},
    {"veto files"},
    {"veto oplock files"},
    {"volume"},
    {"volume serial number"},
};

constexpr std::string_view kProgram = "runs a program";
constexpr std::string_view kPrinter = "is about printers";
constexpr std::string_view kOutside = "leads out of the folder";
constexpr std::string_view kSomebodyElse =
    "acts for somebody else, whatever the folder's list says";
constexpr std::string_view kLists =
    "decides who may do what beside the folder's list (keelhouse acl, privs)";
constexpr std::string_view kModules = "names modules, which decide about the lists too";
constexpr std::string_view kOtherText = "takes other text into the configuration";

constexpr std::pair<std::string_view, std::string_view> kRefused[] = {
    {"path", "is the share point's own (keelhouse share move)"},
    {"directory", "is the share point's own (keelhouse share move)"},
    {"root", kOutside},
    {"comment", "has an option of its own: --comment"},
    {"read only", "has an option of its own: --read-only"},
    {"writeable", "has an option of its own: --read-only"},
    {"writable", "has an option of its own: --read-only"},
    {"write ok", "has an option of its own: --read-only"},
    {"write list", "lets people write to a share that is read-only (keelhouse acl, privs)"},
    {"guest ok", "has an option of its own: --guest"},
    {"public", "has an option of its own: --guest"},
    {"browseable", "has an option of its own: --hide"},
    {"browsable", "has an option of its own: --hide"},
    {"hosts allow", "has an option of its own: --allow-hosts"},
    {"allow hosts", "has an option of its own: --allow-hosts"},
    {"deny hosts", "is called hosts deny"},
    {"copy", kOtherText},
    {"include", kOtherText},
    {"config file", kOtherText},
    {"vfs objects", "names modules, which decide about the lists too (--recycle for the bin)"},
    {"vfs object", "names modules, which decide about the lists too (--recycle for the bin)"},
    {"preexec", kProgram},
    {"exec", kProgram},
    {"preexec close", kProgram},
    {"postexec", kProgram},
    {"root preexec", kProgram},
    {"root preexec close", kProgram},
    {"root postexec", kProgram},
    {"magic script", kProgram},
    {"magic output", kProgram},
    {"dfree command", kProgram},
    {"dfree cache time", "is about a program that cannot be set"},
    {"add share command", kProgram},
    {"change share command", kProgram},
    {"delete share command", kProgram},
    {"print command", kProgram},
    {"lpq command", kProgram},
    {"lprm command", kProgram},
    {"lppause command", kProgram},
    {"lpresume command", kProgram},
    {"queuepause command", kProgram},
    {"queueresume command", kProgram},
    {"printable", kPrinter},
    {"print ok", kPrinter},
    {"printing", kPrinter},
    {"printer name", kPrinter},
    {"printer", kPrinter},
    {"printjob username", kPrinter},
    {"cups options", kPrinter},
    {"default devmode", kPrinter},
    {"force printername", kPrinter},
    {"use client driver", kPrinter},
    {"max print jobs", kPrinter},
    {"max reported print jobs", kPrinter},
    {"min print space", kPrinter},
    {"print notify backchannel", kPrinter},
    {"wide links", kOutside},
    {"msdfs root", kOutside},
    {"msdfs proxy", kOutside},
    {"msdfs shuffle referrals", kOutside},
    {"admin users", kSomebodyElse},
    {"force user", kSomebodyElse},
    {"force group", kSomebodyElse},
    {"group", kSomebodyElse},
    {"guest only", kSomebodyElse},
    {"only guest", kSomebodyElse},
    {"create mask", kLists},
    {"create mode", kLists},
    {"directory mask", kLists},
    {"directory mode", kLists},
    {"force create mode", kLists},
    {"force directory mode", kLists},
    {"security mask", kLists},
    {"directory security mask", kLists},
    {"force security mode", kLists},
    {"force directory security mode", kLists},
    {"inherit permissions", kLists},
    {"inherit acls", kLists},
    {"inherit owner", kLists},
    {"map acl inherit", kLists},
    {"map archive", kLists},
    {"map hidden", kLists},
    {"map readonly", kLists},
    {"map system", kLists},
    {"store dos attributes", kLists},
    {"nt acl support", kLists},
    {"acl allow execute always", kLists},
    {"acl check permissions", kLists},
    {"acl flag inherited canonicalization", kLists},
    {"acl group control", kLists},
    {"acl map full control", kLists},
    {"check parent directory delete on close", kLists},
    {"dos filemode", kLists},
    {"force unknown acl user", kLists},
    {"profile acls", kLists},
    {"fake oplocks", "lets clients overwrite each other's files"},
    {"share modes", "lets clients overwrite each other's files"},
    {"smbd force process locks", "is for Samba's own tests"},
    {"administrative share", "is for Samba's own shares"},
    {"afs share", "is about a file system with rights of its own"},
    {"dmapi support", "is about a file system with rights of its own"},
    {"ntvfs handler", kModules},
    {"spotlight", "needs a search server that is not set up here"},
    {"spotlight backend", "needs a search server that is not set up here"},
    {"elasticsearch:address", "needs a search server that is not set up here"},
    {"elasticsearch:index", "needs a search server that is not set up here"},
    {"elasticsearch:max results", "needs a search server that is not set up here"},
    {"elasticsearch:port", "needs a search server that is not set up here"},
    {"elasticsearch:use tls", "needs a search server that is not set up here"},
    {"aio write behind", "says that files are written when they are not"},
};

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

const Allowed* allowed(const std::string& key) {
  const auto* found = std::find_if(std::begin(kAllowed), std::end(kAllowed),
                                   [&](const auto& each) { return parameterKey(each.key) == key; });
  return found == std::end(kAllowed) ? nullptr : found;
}

std::string_view refusal(const std::string& key) {
  for (const auto& [name, reason] : kRefused) {
    if (parameterKey(name) == key) return reason;
  }
  return {};
}

std::string faultOfKey(const std::string& key) {
  if (key.empty()) return "is missing: write KEY = VALUE";
  if (allowed(key) != nullptr) return {};
  if (const std::string_view reason = refusal(key); !reason.empty()) return std::string(reason);
  if (key.find(':') != std::string::npos)
    return "is a module's: such parameters belong into smb.conf";
  return "is none that a share can have here; what holds for all shares belongs into smb.conf";
}

bool isNumber(std::string_view text) {
  const auto number = parseInteger(text);
  return number && *number >= 0;
}

}  // namespace

std::string parameterKey(std::string_view key) {
  std::string plain;
  for (const char character : key) {
    if (kBlanks.find(character) == std::string_view::npos) plain += character;
  }
  return asciiLower(plain);
}

Parameter parseParameter(std::string_view text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) return {{}, std::string(trimmed(text))};
  const std::string_view key = trimmed(text.substr(0, equals));
  const Allowed* known = allowed(parameterKey(key));
  return {std::string(known != nullptr ? known->key : key),
          std::string(trimmed(text.substr(equals + 1)))};
}

std::string parameterText(const Parameter& parameter) {
  return parameter.key + " = " + parameter.value;
}

std::string faultOfParameter(const Parameter& parameter) {
  const std::string key = parameterKey(parameter.key);
  if (std::string fault = faultOfKey(key); !fault.empty()) return fault;
  if (parameter.value.empty()) return "has no value";
  if (const std::string_view fault = faultOfValue(parameter.value); !fault.empty())
    return "has a value that " + std::string(fault);
  // Samba takes what is no number for 0.
  if (allowed(key)->kind == Kind::number && !isNumber(parameter.value))
    return "takes a number, not " + parameter.value;
  return {};
}

std::vector<std::string> allowedParameters() {
  std::vector<std::string> keys;
  for (const Allowed& each : kAllowed) keys.emplace_back(each.key);
  return keys;
}

std::vector<std::string> refusedParameters() {
  std::vector<std::string> keys;
  for (const auto& each : kRefused) keys.emplace_back(each.first);
  return keys;
}

}  // namespace paddock::samba
