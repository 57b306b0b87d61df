#include "daemon/audit/audit_subject.h"

#include <utility>

#include "base/state_text.h"
#include "base/text.h"
#include "protocol/keys.h"

namespace paddock {

namespace {

constexpr std::string_view kDirectoryPlugin = "paddock_directory";
constexpr const char* kLocalNode = "/Local";
// What is longer than a path and a few numbers is about nothing that goes on.
constexpr std::size_t kLongestKey = 8192;
// Of texts in a line: no path is longer, and no name of an account.
constexpr std::size_t kLongestPath = 4096;
constexpr std::size_t kLongestName = 256;

std::string cut(const std::string& text, std::size_t characters) {
  const std::string_view kept = utf8Prefix(text, characters);
  return kept.size() == text.size() ? text : std::string(kept) + "...";
}

std::optional<std::string> textUnder(const Dictionary& request, const char* key) {
  const std::string* text = request.string(key);
  return text != nullptr ? std::optional(cut(*text, kLongestPath)) : std::nullopt;
}

std::optional<std::string> nameUnder(const Dictionary& request, const char* key) {
  const std::string* text = request.string(key);
  return text != nullptr ? std::optional(cut(*text, kLongestName)) : std::nullopt;
}

void addPath(std::vector<std::string>& paths, const std::string* path) {
  if (path != nullptr && paths.size() < kMostAuditedPaths)
    paths.push_back(cut(*path, kLongestPath));
}

// Of a request for the whole server: a list of paths, or of share points.
std::vector<std::string> pathsIn(const Dictionary& request) {
  std::vector<std::string> paths;
  if (const Array* list = request.array("paths")) {
    for (const Value& path : *list) addPath(paths, path.string());
  }
  const Dictionary* configuration = request.dictionary("configuration");
  const Array* records =
      configuration != nullptr ? configuration->array(protocol::kSharePointList) : nullptr;
  if (records == nullptr) return paths;
  for (const Value& record : *records) {
    if (record.dictionary() != nullptr) addPath(paths, record.dictionary()->string("path"));
  }
  return paths;
}

// Of the trial of an administrator's password.
void nameAdministrator(AuditSubject& subject, const Dictionary& request) {
  subject.node = textUnder(request, protocol::kDsNodeName);
  subject.name = textUnder(request, protocol::kDsAdminName);
}

void nameRecord(AuditSubject& subject, const Dictionary& request) {
  subject.type = textUnder(request, "type");
  subject.name = textUnder(request, "name");
  if (!subject.type && !subject.name) return;
  subject.node = request.contains("node") ? textUnder(request, "node") : kLocalNode;
}

// What is at the path, its keys parted by dots; null where nothing is.
Value valueAt(const Dictionary& whole, std::string_view path) {
  const std::size_t dot = path.find('.');
  const Value* value = whole.find(std::string(path.substr(0, dot)));
  if (value == nullptr) return {};
  if (dot == std::string_view::npos) return *value;
  return value->dictionary() != nullptr ? valueAt(*value->dictionary(), path.substr(dot + 1))
                                        : Value();
}

// What is at the paths that `once` names under `key`.
Array valuesAt(const Dictionary& whole, const Dictionary& once, const char* key) {
  Array values;
  const Array* paths = once.array(key);
  if (paths == nullptr) return values;
  for (const Value& path : *paths)
    values.push_back(path.string() != nullptr ? valueAt(whole, *path.string()) : Value());
  return values;
}

}  // namespace

AuditSubject subjectOf(std::string_view plugin, const Dictionary& request) {
  AuditSubject subject;
  const Dictionary* arguments = request.dictionary(protocol::kOptionalArguments);
  if (arguments != nullptr) subject.path = textUnder(*arguments, "path");
  if (!subject.path) subject.path = textUnder(request, "path");
  if (!subject.path) subject.paths = pathsIn(request);
  if (plugin == kDirectoryPlugin) nameRecord(subject, request);
  if (request.contains(protocol::kDsAdminName)) nameAdministrator(subject, request);
  return subject;
}

bool carriesCredentials(const Dictionary& request) {
  return request.contains(protocol::kAdminUserName) || request.contains(protocol::kAdminPassword);
}

AuditSubject subjectOfAttempt(const Dictionary& request) {
  AuditSubject subject;
  subject.node = request.contains("node") ? nameUnder(request, "node") : kLocalNode;
  subject.name = nameUnder(request, protocol::kAdminUserName);
  return subject;
}

std::vector<std::string> namesTried(const Dictionary& request) {
  std::vector<std::string> names;
  const auto add = [&names](const Dictionary& from, const char* key, const char* passwordKey) {
    const std::string* name = from.string(key);
    const std::string* password = from.string(passwordKey);
    if (name != nullptr && password != nullptr && !password->empty()) names.push_back(*name);
  };
  add(request, protocol::kAdminUserName, protocol::kAdminPassword);
  add(request, protocol::kDsAdminName, protocol::kDsAdminPW);
  if (const Array* credentials = request.array(protocol::kDsCredentials)) {
    for (const Value& one : *credentials)
      if (one.dictionary() != nullptr)
        add(*one.dictionary(), protocol::kAdminUserName, protocol::kAdminPassword);
  }
  return names;
}

bool mayBeTold(const Dictionary& request, const std::string& name) {
  for (const char* key : {protocol::kAdminUserName, protocol::kDsAdminName}) {
    const std::string* told = request.string(key);
    if (told != nullptr && *told == name) return true;
  }
  return false;
}

bool RepeatedRequests::isRepeat(const Asked& asked, const Dictionary* once,
                                const Dictionary& reply) {
  if (once == nullptr) return false;
  std::string key =
      stateText(Array{asked.user, asked.operation, valuesAt(asked.request, *once, "request")});
  if (key.size() > kLongestKey) return false;
  const std::string state = stateText(valuesAt(reply, *once, "reply"));
  const MutexLock lock(mutex_);
  if (states_.size() >= kMostKept) states_.clear();
  std::string& last = states_[std::move(key)];
  if (last == state) return true;
  last = state;
  return false;
}

}  // namespace paddock
