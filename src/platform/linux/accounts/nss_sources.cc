#include "platform/linux/accounts/nss_sources.h"

#include <dlfcn.h>
#include <grp.h>
#include <nss.h>
#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/linux/files/linux_text_files.h"

namespace paddock {

namespace {

constexpr std::size_t kMostAnswers = 200'000;

// A name that is part of a file's name, and cannot lead elsewhere.
bool isModuleName(std::string_view name) {
  return name.find_first_not_of(
             "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-") ==
         std::string_view::npos;
}

// The word that starts the text, which is cut off it; empty at its end.
std::string_view takeWord(std::string_view& text) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t start = std::min(text.find_first_not_of(kBlanks), text.size());
  text.remove_prefix(start);
  const std::size_t end = std::min(text.find_first_of(kBlanks), text.size());
  const std::string_view word = text.substr(0, end);
  text.remove_prefix(end);
  return word;
}

// "passwd: files [NOTFOUND=return] sss" without what is in brackets.
std::string withoutActions(std::string_view line) {
  std::string rest;
  bool inside = false;
  for (const char c : line) {
    if (c == '[') inside = true;
    if (!inside) rest += c;
    if (c == ']') {
      inside = false;
      rest += ' ';
    }
  }
  return rest;
}

void addSources(std::string_view words, std::vector<std::string>& names) {
  for (auto word = takeWord(words); !word.empty(); word = takeWord(words)) {
    if (word == "files" || word == "extrausers" || !isModuleName(word)) continue;
    if (std::find(names.begin(), names.end(), word) == names.end()) names.emplace_back(word);
  }
}

}  // namespace

std::vector<std::string> nssSourcesIn(std::string_view configuration, std::string_view database) {
  std::vector<std::string> names;
  while (!configuration.empty()) {
    const std::size_t end = configuration.find('\n');
    std::string_view line = configuration.substr(0, end);
    configuration.remove_prefix(end == std::string_view::npos ? configuration.size() : end + 1);
    line = line.substr(0, line.find('#'));
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    std::string_view before = line.substr(0, colon);
    if (takeWord(before) != database || !takeWord(before).empty()) continue;
    addSources(withoutActions(line.substr(colon + 1)), names);
  }
  return names;
}

struct NssSources::Source {
  NssModule module;
  std::chrono::steady_clock::time_point restsUntil;
};

NssSources::NssSources(Clock& clock, Options options)
    : clock_(clock), options_(std::move(options)), answers_(kLifetime, kMostAnswers) {}
NssSources::~NssSources() = default;

void NssSources::readConfiguration() {
  std::string configuration;
  LinuxTextFiles().read(options_.configurationPath, configuration);
  names_[0] = nssSourcesIn(configuration, "passwd");
  names_[1] = nssSourcesIn(configuration, "group");
}

std::optional<std::uint32_t> NssSources::idOf(PrincipalType type, const std::string& name) {
  return answer(type, "name " + name, [&](const NssModule& module, std::uint32_t& id) {
    return module.find(type, name, id);
  });
}

bool NssSources::has(const Principal& principal) {
  const auto found = answer(principal.type, "id " + std::to_string(principal.id),
                            [&](const NssModule& module, std::uint32_t& id) {
                              id = principal.id;
                              return module.find(principal);
                            });
  return found.has_value();
}

template <typename Ask>
NssSources::Answer NssSources::answer(PrincipalType type, const std::string& key, Ask&& ask) {
  if (names_[static_cast<int>(type)].empty()) return std::nullopt;
  const auto now = clock_.monotonicNow();
  const std::string whole = (type == PrincipalType::user ? "user " : "group ") + key;
  if (const Answer* known = answers_.find(whole, now)) return *known;
  bool isSure = true;
  const Answer found = askAll(type, isSure, ask);
  if (isSure) answers_.keep(whole, found, now);
  return found;
}

template <typename Ask>
NssSources::Answer NssSources::askAll(PrincipalType type, bool& isSure, Ask&& ask) {
  for (const std::string& name : names_[static_cast<int>(type)]) {
    Source& one = source(name);
    std::uint32_t id = 0;
    auto result = NssModule::Result::unavailable;
    if (clock_.monotonicNow() >= one.restsUntil) {
      result = ask(one.module, id);
      if (result == NssModule::Result::unavailable) one.restsUntil = clock_.monotonicNow() + kRest;
    }
    if (result == NssModule::Result::found) return id;
    if (result == NssModule::Result::unavailable) isSure = false;
  }
  return std::nullopt;
}

NssSources::Source& NssSources::source(const std::string& name) {
  const auto known = sources_.find(name);
  if (known != sources_.end()) return known->second;
  return sources_.emplace(name, Source{NssModule(options_.moduleFolder, name), {}}).first->second;
}

namespace {

constexpr std::size_t kFirstBuffer = 4096;
constexpr std::size_t kLargestBuffer = 64U << 20U;

std::uint32_t entryId(const passwd& entry) { return entry.pw_uid; }
std::uint32_t entryId(const group& entry) { return entry.gr_gid; }

// Calls a function of a module, with a buffer that is large enough.
template <typename Entry, typename Key>
NssModule::Result call(void* address, Key key, std::uint32_t& id) {
  using Function = nss_status(Key, Entry*, char*, std::size_t, int*);
  if (address == nullptr) return NssModule::Result::notFound;
  Function* function = nullptr;
  // POSIX has object pointers and function pointers of one size for dlsym(3).
  static_assert(sizeof function == sizeof address);
  std::memcpy(&function, &address, sizeof function);
  for (std::vector<char> buffer(kFirstBuffer);; buffer.resize(buffer.size() * 2)) {
    Entry entry{};
    int error = 0;
    const nss_status status = function(key, &entry, buffer.data(), buffer.size(), &error);
    if (status == NSS_STATUS_SUCCESS) {
      id = entryId(entry);
      return NssModule::Result::found;
    }
    if (status == NSS_STATUS_NOTFOUND) return NssModule::Result::notFound;
    const bool wantsMore = status == NSS_STATUS_TRYAGAIN && error == ERANGE;
    if (!wantsMore || buffer.size() >= kLargestBuffer) return NssModule::Result::unavailable;
  }
}

}  // namespace

NssModule::NssModule(const std::string& folder, const std::string& name)
    : name_(name), handle_(::dlopen((folder + "libnss_" + name + ".so.2").c_str(), RTLD_NOW)) {}

void* NssModule::function(const std::string& name) const {
  if (handle_ == nullptr) return nullptr;
  return ::dlsym(handle_, ("_nss_" + name_ + "_" + name).c_str());
}

NssModule::Result NssModule::find(PrincipalType type, const std::string& name,
                                  std::uint32_t& id) const {
  if (type == PrincipalType::user)
    return call<passwd, const char*>(function("getpwnam_r"), name.c_str(), id);
  return call<group, const char*>(function("getgrnam_r"), name.c_str(), id);
}

NssModule::Result NssModule::find(const Principal& principal) const {
  std::uint32_t id = 0;
  if (principal.type == PrincipalType::user)
    return call<passwd, uid_t>(function("getpwuid_r"), principal.id, id);
  return call<group, gid_t>(function("getgrgid_r"), principal.id, id);
}

}  // namespace paddock
