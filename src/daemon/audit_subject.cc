#include "daemon/audit_subject.h"

#include <utility>

#include "base/state_text.h"

namespace paddock {

namespace {

constexpr std::string_view kDirectoryPlugin = "paddock_directory";
constexpr const char* kLocalNode = "/Local";
// Of a path and a number; what is longer names no run.
constexpr std::size_t kLongestKey = 8192;
constexpr std::string_view kRunState = "statusCopyPrivs";
constexpr const char* kRunKeys[] = {"copyPrivsPid", "copyPrivsStatusFile"};

std::optional<std::string> textUnder(const Dictionary& request, const char* key) {
  const std::string* text = request.string(key);
  return text != nullptr ? std::optional(*text) : std::nullopt;
}

void addPath(std::vector<std::string>& paths, const std::string* path) {
  if (path != nullptr && paths.size() < kMostAuditedPaths) paths.push_back(*path);
}

// Of a request for the whole server: a list of paths, or of share points.
std::vector<std::string> pathsIn(const Dictionary& request) {
  std::vector<std::string> paths;
  if (const Array* list = request.array("paths")) {
    for (const Value& path : *list) addPath(paths, path.string());
  }
  const Dictionary* configuration = request.dictionary("configuration");
  const Array* records =
      configuration != nullptr ? configuration->array("sharePointList") : nullptr;
  if (records == nullptr) return paths;
  for (const Value& record : *records) {
    if (record.dictionary() != nullptr) addPath(paths, record.dictionary()->string("path"));
  }
  return paths;
}

// Of the trial of an administrator's password.
void nameAdministrator(AuditSubject& subject, const Dictionary& request) {
  subject.node = textUnder(request, "dsNodeName");
  subject.name = textUnder(request, "dsAdminName");
}

void nameRecord(AuditSubject& subject, const Dictionary& request) {
  subject.type = textUnder(request, "type");
  subject.name = textUnder(request, "name");
  if (!subject.type && !subject.name) return;
  subject.node = request.contains("node") ? textUnder(request, "node") : kLocalNode;
}

}  // namespace

AuditSubject subjectOf(std::string_view plugin, const Dictionary& request) {
  AuditSubject subject;
  const Dictionary* arguments = request.dictionary("optionalArguments");
  if (arguments != nullptr) subject.path = textUnder(*arguments, "path");
  if (!subject.path) subject.path = textUnder(request, "path");
  if (!subject.path) subject.paths = pathsIn(request);
  if (plugin == kDirectoryPlugin) nameRecord(subject, request);
  if (request.contains("dsAdminName")) nameAdministrator(subject, request);
  return subject;
}

bool RepeatedRequests::isRepeat(unsigned user, std::string_view operation,
                                const Dictionary& request, const Dictionary& reply) {
  if (operation != kRunState) return false;
  Array run{user};
  for (const char* key : kRunKeys) {
    const Value* value = request.find(key);
    run.push_back(value != nullptr ? *value : Value());
  }
  const Dictionary* status = reply.dictionary("status");
  const std::string* word = status != nullptr ? status->string("status") : nullptr;
  const std::string* error = reply.string("error");
  const std::string state =
      stateText(Array{word != nullptr ? *word : "", error != nullptr ? *error : ""});
  std::string key = stateText(run);
  if (key.size() > kLongestKey) return false;
  const std::lock_guard lock(mutex_);
  if (states_.size() >= kMostRuns) states_.clear();
  std::string& last = states_[std::move(key)];
  if (last == state) return true;
  last = state;
  return false;
}

}  // namespace paddock
