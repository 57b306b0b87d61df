#include "keelhouse/share/automount_change.h"

#include <curl/curl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <utility>

#include "base/text.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/suggested_words.h"
#include "protocol/keys.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPlugin = "paddock_directory";
constexpr const char* kMounts = "dsRecTypeStandard:Mounts";
constexpr const char* kLinkDir = "dsAttrTypeStandard:VFSLinkDir";
constexpr const char* kType = "dsAttrTypeStandard:VFSType";
constexpr const char* kOptions = "dsAttrTypeStandard:VFSOpts";
constexpr std::string_view kUrl = "url==vsp://";

std::string hostName() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  if (::gethostname(name.data(), name.size()) != 0) throw failure("this host has no name");
  return name.data();
}

std::string percentDecoded(std::string_view text) {
  int size = 0;
  const std::unique_ptr<char, decltype(&curl_free)> decoded(
      curl_easy_unescape(nullptr, text.data(), static_cast<int>(text.size()), &size), &curl_free);
  if (decoded == nullptr) throw std::bad_alloc();
  return {decoded.get(), static_cast<std::size_t>(size)};
}

// "HOST/NAME" of the record's URL; empty when it has none.
std::string urlTarget(const Dictionary& record) {
  const Array* options = record.array(kOptions);
  if (options == nullptr) return {};
  for (const Value& option : *options) {
    const std::string* text = option.string();
    if (text == nullptr || !text->starts_with(kUrl)) continue;
    const std::size_t at = text->find('@');
    if (at != std::string::npos) return percentDecoded(std::string_view(*text).substr(at + 1));
  }
  return {};
}

// Whether the record has clients mount the share point at its mount path, in its way.
bool agrees(const Dictionary& record, const Dictionary& sharePoint) {
  if (firstValue(record, kLinkDir) != textOf(sharePoint, protocol::kAutomountMountPath))
    return false;
  if (sharePoint.integer(protocol::kAutomountFileSystemType).value_or(0) != 0) {
    return firstValue(record, kType) == "nfs";
  }
  return firstValue(record, kType) == "url" &&
         urlTarget(record) == hostName() + "/" + textOf(sharePoint, protocol::kNameOverVSP);
}

}  // namespace

std::string mountRecordName(const std::string& path) { return hostName() + ":" + path; }

MountRecord::MountRecord(const Session& session, std::string path, std::string node,
                         std::optional<Credentials> credentials)
    : session_(session),
      path_(std::move(path)),
      name_(mountRecordName(path_)),
      node_(std::move(node)),
      credentials_(std::move(credentials)) {}

Dictionary MountRecord::ask() const {
  Dictionary request{{"node", node_}, {"type", kMounts}, {"name", name_}};
  setCredentials(request, credentials_);
  return session_.daemon.call(kPlugin, "getRecord", request);
}

void MountRecord::refuseCredentials(const Dictionary& reply) const {
  if (!credentials_ || reply.integer("status") != EACCES) return;
  throw failure("the directory node " + printable(node_) + " refuses " +
                printable(credentials_->user) +
                ": the name or the password is wrong\nNothing was changed.");
}

void MountRecord::requireNode() const {
  const Dictionary reply = ask();
  refuseCredentials(reply);
  const auto status = reply.integer("status");
  if (status == ENOENT) {
    throw failure("there is no directory node " + printable(node_) +
                  "\nNothing was changed. See which there are: keelhouse nodes");
  }
  // A node may hide its records from anonymous clients.
  if (status == EACCES) return;
  requireStatus(
      reply, "status",
      "nothing was changed, because the directory node " + printable(node_) + " cannot be asked");
}

void MountRecord::requireCredentials() const {
  if (credentials_) refuseCredentials(ask());
}

Failure MountRecord::notWritten(const std::string& problem) const {
  const std::string again = "keelhouse share set " + printable(shellWord(path_)) + " --admin USER";
  const std::string text = "the settings of " + printable(path_) +
                           " are written, but clients do not mount it so: " + problem + "\n";
  if (!credentials_) return failure(text + "The node takes it only from an account: " + again);
  return failure(text + printable(credentials_->user) +
                 " may not be allowed to write there. With another account: " + again);
}

void MountRecord::requireWritten(const Dictionary& sharePoint) const {
  const std::string name = "the record " + printable(name_);
  const std::string place = " on " + printable(node_);
  const Dictionary reply = ask();
  requireStatus(reply, "status",
                "the settings of " + printable(path_) + " are written, but whether " + name +
                    " is" + place + " cannot be seen");
  const Dictionary* record = reply.dictionary("record");
  if (record == nullptr) throw notWritten(name + " is not" + place);
  if (!agrees(*record, sharePoint)) throw notWritten(name + place + " says otherwise");
}

void MountRecord::requireGone() const {
  const std::string remains =
      "the record " + printable(name_) + " is on " + printable(node_) + " still";
  const Dictionary reply = ask();
  requireStatus(reply, "status", "whether " + remains + " cannot be seen");
  if (!reply.contains("record")) return;
  throw failure(remains + ", and clients go on mounting " + printable(path_) +
                "\nDelete it: keelhouse record delete mounts " + printable(shellWord(name_)) +
                " --node " + printable(shellWord(node_)) + " --admin USER");
}

using Step = AutomountPlan::Step;

AutomountChange::AutomountChange(const Session& session, const std::string& path,
                                 AutomountPlan plan, const NodeAccount& account)
    : plan_(std::move(plan)) {
  if (plan_.step == Step::none) return;
  credentials_ = readCredentials(account);
  record_.emplace(session, path, plan_.node, credentials_);
  // Sharing can be ended without the node.
  if (plan_.step == Step::write) record_->requireNode();
  if (plan_.step == Step::remove) record_->requireCredentials();
}

Array AutomountChange::credentials() const {
  if (!credentials_) return {};
  Dictionary entry{{protocol::kNodePath, plan_.node}};
  setCredentials(entry, credentials_);
  return Array{Value(std::move(entry))};
}

void AutomountChange::check(const Dictionary& sharePoint) const {
  if (plan_.step == Step::write) record_->requireWritten(sharePoint);
  if (plan_.step == Step::remove) record_->requireGone();
}

}  // namespace paddock::keelhouse
