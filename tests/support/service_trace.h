// Sees every call of a platform service before it is carried out, and makes chosen ones fail.
//
// The traced services forward to others. A call is named by its operation, the thing that it
// concerns (a record's name, a node's or a file's path, a URL) and what it carries (an attribute,
// a type). Rules are asked in the order in which they were added; the first that applies decides.
// Calls may come from several threads.
#pragma once

#include <algorithm>
#include <cerrno>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/accounts.h"
#include "platform/directory.h"
#include "platform/file_attributes.h"
#include "platform/metadata_stores.h"
#include "platform/net_service.h"
#include "platform/plugin_commands.h"
#include "platform/program_runner.h"
#include "platform/quota_control.h"
#include "platform/services.h"
#include "platform/shared_file_list.h"
#include "platform/testing/forwarding_acl.h"
#include "platform/text_file.h"
#include "platform/uuid_source.h"
#include "platform/volume_info.h"

namespace paddock {

struct ServiceCall {
  std::string operation;  // "findRecord", "statfs", "replace"
  std::string subject;
  std::string detail;
  friend bool operator==(const ServiceCall&, const ServiceCall&) = default;
};

inline std::ostream& operator<<(std::ostream& out, const ServiceCall& call) {
  return out << call.operation << " " << call.subject << " " << call.detail;
}

class ServiceTrace {
 public:
  // Returns 0 to let the call pass, a number for it to fail with, or throws in its place.
  using Effect = std::function<int(const ServiceCall&)>;
  using Match = std::function<bool(const ServiceCall&)>;
  static constexpr int kEveryTime = std::numeric_limits<int>::max();

  // Applies `effect` to the calls that match: after `skip` of them, `times` times.
  void when(Match match, Effect effect, int times = kEveryTime, int skip = 0) {
    const std::lock_guard guard(mutex_);
    rules_.push_back({std::move(match), std::move(effect), times, skip});
  }
  void when(const std::string& operation, Effect effect, int times = kEveryTime, int skip = 0) {
    when([operation](const ServiceCall& call) { return call.operation == operation; },
         std::move(effect), times, skip);
  }
  // Throws a copy of `error` from the operation.
  template <typename Error>
  void raise(const std::string& operation, const Error& error, int times = kEveryTime,
             int skip = 0) {
    when(
        operation, [error](const ServiceCall&) -> int { throw error; }, times, skip);
  }
  template <typename Error>
  void raiseFor(const std::string& operation, const std::string& subject, const Error& error,
                int times = kEveryTime, int skip = 0) {
    when([=](const ServiceCall& c) { return c.operation == operation && c.subject == subject; },
         [error](const ServiceCall&) -> int { throw error; }, times, skip);
  }
  // Lets an operation that returns a number fail with it.
  void fail(const std::string& operation, int number, int times = kEveryTime, int skip = 0) {
    when(
        operation, [number](const ServiceCall&) { return number; }, times, skip);
  }
  void forgetRules() {
    const std::lock_guard guard(mutex_);
    rules_.clear();
  }

  void forgetCalls() {
    const std::lock_guard guard(mutex_);
    calls_.clear();
  }
  std::vector<ServiceCall> calls() const {
    const std::lock_guard guard(mutex_);
    return calls_;
  }
  std::vector<ServiceCall> callsOf(const std::string& operation) const {
    std::vector<ServiceCall> found = calls();
    std::erase_if(found, [&](const ServiceCall& call) { return call.operation != operation; });
    return found;
  }
  std::size_t count(const std::string& operation) const { return callsOf(operation).size(); }
  // The calls of the operations named, in their order, as "operation subject".
  std::vector<std::string> sequence(const std::vector<std::string>& operations) const {
    std::vector<std::string> found;
    for (const ServiceCall& call : calls()) {
      if (std::find(operations.begin(), operations.end(), call.operation) != operations.end()) {
        found.push_back(call.operation + " " + call.subject);
      }
    }
    return found;
  }

  int before(const std::string& operation, const std::string& subject = "",
             const std::string& detail = "") {
    const ServiceCall call{operation, subject, detail};
    const Effect effect = note(call);
    return effect ? effect(call) : 0;
  }

 private:
  struct Rule {
    Match match;
    Effect effect;
    int times;
    int skip;
  };

  Effect note(const ServiceCall& call) {
    const std::lock_guard guard(mutex_);
    calls_.push_back(call);
    for (Rule& rule : rules_) {
      if (rule.times == 0 || !rule.match(call)) continue;
      if (rule.skip > 0) {
        --rule.skip;
        continue;
      }
      if (rule.times != kEveryTime) --rule.times;
      return rule.effect;
    }
    return {};
  }

  mutable std::mutex mutex_;
  std::vector<ServiceCall> calls_;
  std::vector<Rule> rules_;
};

// The directory. Operations: openLocal, localNode, searchNode, findNode; findRecordsOfTypes
// (subject: the value, detail: the attribute), findRecordNames, findRecord, newRecord,
// authenticateName (detail: whether only to authenticate), getNodeAttribute; getAllAttributes,
// getAllAttributesAndValues, getAttribute, getAttributeFirstValue, setAttribute, removeAttribute
// (subject: the record's name, detail: the attribute), removeRecord, setAttributesAndValues.
class TracedRecord : public DirectoryRecord {
 public:
  TracedRecord(std::unique_ptr<DirectoryRecord> record, std::string name, ServiceTrace& trace)
      : record_(std::move(record)), name_(std::move(name)), trace_(trace) {}

  std::vector<std::string> getAllAttributes() const override {
    trace_.before("getAllAttributes", name_);
    return record_->getAllAttributes();
  }
  Dictionary getAllAttributesAndValues() const override {
    trace_.before("getAllAttributesAndValues", name_);
    return record_->getAllAttributesAndValues();
  }
  Array getAttribute(const std::string& attribute) const override {
    trace_.before("getAttribute", name_, attribute);
    return record_->getAttribute(attribute);
  }
  std::optional<std::string> getAttributeFirstValue(const std::string& attribute) const override {
    trace_.before("getAttributeFirstValue", name_, attribute);
    return record_->getAttributeFirstValue(attribute);
  }
  void setAttribute(const std::string& attribute, const std::string& value) override {
    trace_.before("setAttribute", name_, attribute);
    record_->setAttribute(attribute, value);
  }
  void setAttribute(const std::string& attribute, const Array& values) override {
    trace_.before("setAttribute", name_, attribute);
    record_->setAttribute(attribute, values);
  }
  void removeAttribute(const std::string& attribute) override {
    trace_.before("removeAttribute", name_, attribute);
    record_->removeAttribute(attribute);
  }
  void removeRecord() override {
    trace_.before("removeRecord", name_);
    record_->removeRecord();
  }
  void setAttributesAndValues(const Dictionary& attributes) override {
    trace_.before("setAttributesAndValues", name_);
    record_->setAttributesAndValues(attributes);
  }

 private:
  std::unique_ptr<DirectoryRecord> record_;
  std::string name_;
  ServiceTrace& trace_;
};

class TracedNode : public DirectoryNode {
 public:
  TracedNode(std::shared_ptr<DirectoryNode> node, ServiceTrace& trace)
      : node_(std::move(node)), trace_(trace) {}

  const std::string& path() const override { return node_->path(); }
  Array findRecordsOfTypes(const std::vector<std::string>& types, const std::string& attribute,
                           const std::string& value, MatchType matchType) override {
    trace_.before("findRecordsOfTypes", value, attribute);
    return node_->findRecordsOfTypes(types, attribute, value, matchType);
  }
  Array findRecordNames(const std::string& name, const std::vector<std::string>& attributes,
                        const std::string& type, MatchType matchType) override {
    trace_.before("findRecordNames", name, type);
    return node_->findRecordNames(name, attributes, type, matchType);
  }
  std::unique_ptr<DirectoryRecord> findRecord(const std::string& name,
                                              const std::string& type) override {
    trace_.before("findRecord", name, type);
    return wrap(node_->findRecord(name, type), name);
  }
  std::unique_ptr<DirectoryRecord> newRecord(const std::string& name,
                                             const std::string& type) override {
    trace_.before("newRecord", name, type);
    return wrap(node_->newRecord(name, type), name);
  }
  Status authenticateName(const std::string& name, const std::string& password,
                          bool authOnly) override {
    const int number = trace_.before("authenticateName", name, authOnly ? "authOnly" : "keep");
    return number != 0 ? number : node_->authenticateName(name, password, authOnly);
  }
  Array getAttribute(const std::string& attribute) const override {
    trace_.before("getNodeAttribute", node_->path(), attribute);
    return node_->getAttribute(attribute);
  }

 private:
  std::unique_ptr<DirectoryRecord> wrap(std::unique_ptr<DirectoryRecord> record,
                                        const std::string& name) {
    if (!record) return record;
    return std::make_unique<TracedRecord>(std::move(record), name, trace_);
  }

  std::shared_ptr<DirectoryNode> node_;
  ServiceTrace& trace_;
};

class TracedSession : public DirectorySession {
 public:
  TracedSession(std::unique_ptr<DirectorySession> session, ServiceTrace& trace)
      : session_(std::move(session)), trace_(trace) {}

  std::shared_ptr<DirectoryNode> localNode() override {
    trace_.before("localNode");
    return std::make_shared<TracedNode>(session_->localNode(), trace_);
  }
  std::shared_ptr<DirectoryNode> searchNode() override {
    trace_.before("searchNode");
    return std::make_shared<TracedNode>(session_->searchNode(), trace_);
  }
  std::shared_ptr<DirectoryNode> findNode(const std::string& path) override {
    trace_.before("findNode", path);
    return std::make_shared<TracedNode>(session_->findNode(path), trace_);
  }

 private:
  std::unique_ptr<DirectorySession> session_;
  ServiceTrace& trace_;
};

class TracedDirectory : public DirectoryService {
 public:
  TracedDirectory(DirectoryService& directory, ServiceTrace& trace)
      : directory_(directory), trace_(trace) {}

  std::unique_ptr<DirectorySession> openLocal() override {
    trace_.before("openLocal");
    return std::make_unique<TracedSession>(directory_.openLocal(), trace_);
  }

 private:
  DirectoryService& directory_;
  ServiceTrace& trace_;
};

// Operations: read, replace, copyOnce, removeFile (subject: the folder, detail: the name), exists;
// subject: the path.
class TracedTextFiles : public TextFiles {
 public:
  TracedTextFiles(TextFiles& files, ServiceTrace& trace) : files_(files), trace_(trace) {}

  using TextFiles::read;
  int read(const std::string& path, std::string& contents, FileIdentity& identity) override {
    contents.clear();
    identity = {};
    const int number = trace_.before("read", path);
    return number != 0 ? number : files_.read(path, contents, identity);
  }
  int identify(const std::string& path, FileIdentity& identity) override {
    identity = {};
    const int number = trace_.before("identify", path);
    return number != 0 ? number : files_.identify(path, identity);
  }
  int replaceKeeping(const std::string& path, const std::string& contents,
                     const FileIdentity* expected, Replacement& replacement) override {
    replacement = {};
    const int number = trace_.before("replace", path, contents);
    return number != 0 ? number : files_.replaceKeeping(path, contents, expected, replacement);
  }
  int namesBeginningWith(const std::string& folder, const std::string& prefix,
                         std::vector<std::string>& names) override {
    names.clear();
    const int number = trace_.before("namesBeginningWith", folder, prefix);
    return number != 0 ? number : files_.namesBeginningWith(folder, prefix, names);
  }
  int replace(const std::string& path, const std::string& contents) override {
    const int number = trace_.before("replace", path, contents);
    return number != 0 ? number : files_.replace(path, contents);
  }
  int copyOnce(const std::string& from, const std::string& to) override {
    const int number = trace_.before("copyOnce", from, to);
    return number != 0 ? number : files_.copyOnce(from, to);
  }
  int removeFile(const std::string& folder, const std::string& name) override {
    const int number = trace_.before("removeFile", folder, name);
    return number != 0 ? number : files_.removeFile(folder, name);
  }
  bool exists(const std::string& path) override {
    trace_.before("exists", path);
    return files_.exists(path);
  }

 private:
  TextFiles& files_;
  ServiceTrace& trace_;
};

// Operations: statfs, statistics, getmntinfo.
class TracedVolumeInfo : public VolumeInfo {
 public:
  TracedVolumeInfo(VolumeInfo& volumes, ServiceTrace& trace) : volumes_(volumes), trace_(trace) {}

  int statfs(const std::string& path, MountedVolume& volume) override {
    volume = {};
    const int number = trace_.before("statfs", path);
    return number != 0 ? number : volumes_.statfs(path, volume);
  }
  int statistics(const std::string& path, VolumeStatistics& statistics) override {
    statistics = {};
    const int number = trace_.before("statistics", path);
    return number != 0 ? number : volumes_.statistics(path, statistics);
  }
  int getmntinfo(std::vector<MountedVolume>& volumes) override {
    volumes.clear();
    const int number = trace_.before("getmntinfo");
    return number != 0 ? number : volumes_.getmntinfo(volumes);
  }

 private:
  VolumeInfo& volumes_;
  ServiceTrace& trace_;
};

// Operations: createSharePointList, snapshot, resolve (detail: the flags), insertLast, removeItem.
// A number makes the list null, the insertion null, the resolution absent, the removal fail.
class TracedSharedFileLists : public SharedFileLists {
 public:
  TracedSharedFileLists(SharedFileLists& lists, ServiceTrace& trace)
      : lists_(lists), trace_(trace) {}

  std::unique_ptr<SharedFileList> createSharePointList() override {
    if (trace_.before("createSharePointList") != 0) return nullptr;
    auto list = lists_.createSharePointList();
    if (!list) return nullptr;
    return std::make_unique<List>(std::move(list), trace_);
  }

 private:
  class Item : public SharedFileListItem {
   public:
    Item(SharedFileList::Item item, ServiceTrace& trace) : item_(std::move(item)), trace_(trace) {}
    std::optional<std::string> resolve(std::uint32_t flags) override {
      if (trace_.before("resolve", "", std::to_string(flags)) != 0) return std::nullopt;
      return item_->resolve(flags);
    }
    const SharedFileList::Item& inner() const { return item_; }

   private:
    SharedFileList::Item item_;
    ServiceTrace& trace_;
  };

  class List : public SharedFileList {
   public:
    List(std::unique_ptr<SharedFileList> list, ServiceTrace& trace)
        : list_(std::move(list)), trace_(trace) {}
    std::vector<SharedFileList::Item> snapshot() override {
      trace_.before("snapshot");
      std::vector<SharedFileList::Item> items;
      for (auto& item : list_->snapshot()) {
        items.push_back(std::make_shared<TracedSharedFileLists::Item>(std::move(item), trace_));
      }
      return items;
    }
    SharedFileList::Item insertLast(const std::string& url) override {
      if (trace_.before("insertLast", url) != 0) return nullptr;
      auto item = list_->insertLast(url);
      if (!item) return nullptr;
      return std::make_shared<TracedSharedFileLists::Item>(std::move(item), trace_);
    }
    Status remove(const SharedFileList::Item& item) override {
      const int number = trace_.before("removeItem");
      if (number != 0) return number;
      const auto* traced = dynamic_cast<const TracedSharedFileLists::Item*>(item.get());
      if (traced == nullptr) throw std::logic_error("an item of another list");
      return list_->remove(traced->inner());
    }

   private:
    std::unique_ptr<SharedFileList> list_;
    ServiceTrace& trace_;
  };

  SharedFileLists& lists_;
  ServiceTrace& trace_;
};

// Operation: doCommand; subject: the module, detail: the command's name.
class TracedPluginCommands : public PluginCommands {
 public:
  TracedPluginCommands(PluginCommands& commands, ServiceTrace& trace)
      : commands_(commands), trace_(trace) {}

  Dictionary doCommand(const std::string& bundle, const Dictionary& command,
                       const std::string& module, const std::optional<std::string>& user) override {
    const std::string* name = command.string("command");
    trace_.before("doCommand", module, name != nullptr ? *name : "");
    return commands_.doCommand(bundle, command, module, user);
  }

 private:
  PluginCommands& commands_;
  ServiceTrace& trace_;
};

// Operations: run, start, startDetached; subject: the path, detail: the arguments with a blank
// between them; a number is the errno of starting the program. probe (subject: the process);
// programExists, which a number makes say no.
class TracedProgramRunner : public ProgramRunner {
 public:
  TracedProgramRunner(ProgramRunner& runner, ServiceTrace& trace)
      : runner_(runner), trace_(trace) {}

  ProgramOutcome run(const std::string& path, const std::vector<std::string>& arguments) override {
    const int number = trace_.before("run", path, joined(arguments));
    if (number == 0) return runner_.run(path, arguments);
    ProgramOutcome outcome;
    outcome.status = number;
    return outcome;
  }
  int start(const std::string& path, const std::vector<std::string>& argumentVector) override {
    const int number = trace_.before("start", path, joined(argumentVector));
    return number != 0 ? number : runner_.start(path, argumentVector);
  }
  DetachedStart startDetached(const std::string& path,
                              const std::vector<std::string>& argumentVector) override {
    const int number = trace_.before("startDetached", path, joined(argumentVector));
    if (number == 0) return runner_.startDetached(path, argumentVector);
    return {.error = number, .pid = 0, .detachError = 0};
  }
  bool exists(const std::string& path) override {
    return trace_.before("programExists", path) == 0 && runner_.exists(path);
  }
  int probe(std::int64_t process) override {
    const int number = trace_.before("probe", std::to_string(process));
    return number != 0 ? number : runner_.probe(process);
  }

 private:
  static std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
  }

  ProgramRunner& runner_;
  ServiceTrace& trace_;
};

// Operation: newUuid.
class TracedUuidSource : public UuidSource {
 public:
  TracedUuidSource(UuidSource& source, ServiceTrace& trace) : source_(source), trace_(trace) {}

  Guid newUuid() override {
    trace_.before("newUuid");
    return source_.newUuid();
  }

 private:
  UuidSource& source_;
  ServiceTrace& trace_;
};

// Operations: readAttributes, applyAttributes, fileExists; a number makes the last say no.
class TracedFileAttributes : public FileAttributeService {
 public:
  TracedFileAttributes(FileAttributeService& attributes, ServiceTrace& trace)
      : attributes_(attributes), trace_(trace) {}

  int read(const std::string& path, FileAttributes& attributes) override {
    attributes = {};
    const int number = trace_.before("readAttributes", path);
    return number != 0 ? number : attributes_.read(path, attributes);
  }
  int apply(const std::string& path, const FileAttributeChanges& changes) override {
    const int number = trace_.before("applyAttributes", path);
    return number != 0 ? number : attributes_.apply(path, changes);
  }
  bool exists(const std::string& path) override {
    return trace_.before("fileExists", path) == 0 && attributes_.exists(path);
  }
  // Asked for messages alone, and not traced.
  std::optional<RefusedLink> refusedLink(const std::string& path) override {
    return attributes_.refusedLink(path);
  }

 private:
  FileAttributeService& attributes_;
  ServiceTrace& trace_;
};

// Operations: acl_get_file, acl_set_file, acl_valid; a number is the errno. Lists in memory are not
// traced.
class TracedAcl : public ForwardingAcl {
 public:
  TracedAcl(acl::AclService& service, ServiceTrace& trace)
      : ForwardingAcl(service), trace_(trace) {}

  acl::List* acl_get_file(const std::string& path, int type) override {
    return fails("acl_get_file", path) ? nullptr : ForwardingAcl::acl_get_file(path, type);
  }
  int acl_set_file(const std::string& path, int type, acl::List* list) override {
    return fails("acl_set_file", path) ? -1 : ForwardingAcl::acl_set_file(path, type, list);
  }
  int acl_valid(acl::List* list) override {
    return fails("acl_valid", "") ? -1 : ForwardingAcl::acl_valid(list);
  }

 private:
  bool fails(const std::string& operation, const std::string& path) {
    const int number = trace_.before(operation, path);
    if (number != 0) errno = number;
    return number != 0;
  }

  ServiceTrace& trace_;
};

// Operations: copyStorePaths, copyStoreAttributes, setStoreAttributes, createStore; detail: the
// search level that is set.
class TracedMetadataStores : public MetadataStores {
 public:
  TracedMetadataStores(MetadataStores& stores, ServiceTrace& trace)
      : stores_(stores), trace_(trace) {}

  int copyStorePaths(std::shared_ptr<const StorePaths>& paths) override {
    paths = nullptr;
    const int number = trace_.before("copyStorePaths");
    return number != 0 ? number : stores_.copyStorePaths(paths);
  }
  int copyStoreAttributes(const std::string& path, Dictionary& attributes) override {
    attributes = {};
    const int number = trace_.before("copyStoreAttributes", path);
    return number != 0 ? number : stores_.copyStoreAttributes(path, attributes);
  }
  int setStoreAttributes(const std::string& path, const Dictionary& attributes) override {
    const int number = trace_.before("setStoreAttributes", path, levelIn(attributes));
    return number != 0 ? number : stores_.setStoreAttributes(path, attributes);
  }
  int createStore(const std::string& path, const Dictionary& attributes) override {
    const int number = trace_.before("createStore", path, levelIn(attributes));
    return number != 0 ? number : stores_.createStore(path, attributes);
  }

 private:
  static std::string levelIn(const Dictionary& attributes) {
    const std::string* level = attributes.string(metadata_store::kSearchLevel);
    return level != nullptr ? *level : std::string();
  }

  MetadataStores& stores_;
  ServiceTrace& trace_;
};

// Operation: quotactl; subject: the path, detail: the command word in decimal.
class TracedQuotaControl : public QuotaControl {
 public:
  TracedQuotaControl(QuotaControl& control, ServiceTrace& trace)
      : control_(control), trace_(trace) {}

  int quotactl(const std::string& path, std::uint32_t commandWord, std::uint32_t id,
               const QuotaArgument& argument) override {
    const int number = trace_.before("quotactl", path, std::to_string(commandWord));
    return number != 0 ? number : control_.quotactl(path, commandWord, id, argument);
  }

 private:
  QuotaControl& control_;
  ServiceTrace& trace_;
};

// Operations: createService (subject: the type, detail: the port), setDelegate, setTxtRecordData,
// publish, stop (subject: the type). A number makes the TXT record refused, and keeps the service
// from being published or stopped.
class TracedNetServices : public NetServices {
 public:
  TracedNetServices(NetServices& services, ServiceTrace& trace)
      : services_(services), trace_(trace) {}

  std::shared_ptr<NetService> createService(const std::string& domain, const std::string& type,
                                            const std::string& name, std::uint16_t port) override {
    trace_.before("createService", type, std::to_string(port));
    return std::make_shared<Service>(services_.createService(domain, type, name, port), type,
                                     trace_);
  }

 private:
  class Service : public NetService {
   public:
    Service(std::shared_ptr<NetService> service, std::string type, ServiceTrace& trace)
        : service_(std::move(service)), type_(std::move(type)), trace_(trace) {}
    void setDelegate(NetServiceDelegate* delegate) override {
      trace_.before("setDelegate", type_);
      service_->setDelegate(delegate);
    }
    bool setTxtRecordData(const Data& data) override {
      return trace_.before("setTxtRecordData", type_) == 0 && service_->setTxtRecordData(data);
    }
    void publish() override {
      if (trace_.before("publish", type_) == 0) service_->publish();
    }
    void stop() override {
      if (trace_.before("stop", type_) == 0) service_->stop();
    }

   private:
    std::shared_ptr<NetService> service_;
    std::string type_;
    ServiceTrace& trace_;
  };

  NetServices& services_;
  ServiceTrace& trace_;
};

// Operations: getpwnam, getgrnam, getpwuid, getgrgid (subject: the name or the id), getgrnam_r
// (detail: the size of its buffer).
class TracedAccounts : public Accounts {
 public:
  TracedAccounts(Accounts& accounts, ServiceTrace& trace) : accounts_(accounts), trace_(trace) {}

  int getpwnam(const std::string& name, std::uint32_t& uid) override {
    uid = 0;
    const int number = trace_.before("getpwnam", name);
    return number != 0 ? number : accounts_.getpwnam(name, uid);
  }
  int getgrnam(const std::string& name, std::uint32_t& gid) override {
    gid = 0;
    const int number = trace_.before("getgrnam", name);
    return number != 0 ? number : accounts_.getgrnam(name, gid);
  }
  int getpwuid(std::uint32_t uid, std::string& name) override {
    name.clear();
    const int number = trace_.before("getpwuid", std::to_string(uid));
    return number != 0 ? number : accounts_.getpwuid(uid, name);
  }
  int getgrgid(std::uint32_t gid, std::string& name) override {
    name.clear();
    const int number = trace_.before("getgrgid", std::to_string(gid));
    return number != 0 ? number : accounts_.getgrgid(gid, name);
  }
  int getgrnam_r(const std::string& name, std::size_t bufferSize, std::uint32_t& gid) override {
    gid = 0;
    const int number = trace_.before("getgrnam_r", name, std::to_string(bufferSize));
    return number != 0 ? number : accounts_.getgrnam_r(name, bufferSize, gid);
  }

 private:
  Accounts& accounts_;
  ServiceTrace& trace_;
};

// Every service of `wrapped` that the trace knows, traced; the others as they are.
class TracedServices {
 public:
  TracedServices(const Services& wrapped, ServiceTrace& trace)
      : directory_(*wrapped.directory, trace),
        files_(*wrapped.textFiles, trace),
        volumes_(*wrapped.volumeInfo, trace),
        sharedFiles_(*wrapped.sharedFileLists, trace),
        plugins_(*wrapped.pluginCommands, trace),
        programs_(*wrapped.programRunner, trace),
        uuids_(*wrapped.uuidSource, trace),
        fileAttributes_(*wrapped.fileAttributes, trace),
        acl_(*wrapped.acl, trace),
        stores_(*wrapped.metadataStores, trace),
        quotaControl_(*wrapped.quotaControl, trace),
        netServices_(*wrapped.netServices, trace),
        accounts_(*wrapped.accounts, trace),
        services_(wrapped) {
    services_.directory = &directory_;
    services_.textFiles = &files_;
    services_.volumeInfo = &volumes_;
    services_.sharedFileLists = &sharedFiles_;
    services_.pluginCommands = &plugins_;
    services_.programRunner = &programs_;
    services_.uuidSource = &uuids_;
    services_.fileAttributes = &fileAttributes_;
    services_.acl = &acl_;
    services_.metadataStores = &stores_;
    services_.quotaControl = &quotaControl_;
    services_.netServices = &netServices_;
    services_.accounts = &accounts_;
  }
  TracedServices(const TracedServices&) = delete;
  TracedServices& operator=(const TracedServices&) = delete;

  const Services& services() const { return services_; }

 private:
  TracedDirectory directory_;
  TracedTextFiles files_;
  TracedVolumeInfo volumes_;
  TracedSharedFileLists sharedFiles_;
  TracedPluginCommands plugins_;
  TracedProgramRunner programs_;
  TracedUuidSource uuids_;
  TracedFileAttributes fileAttributes_;
  TracedAcl acl_;
  TracedMetadataStores stores_;
  TracedQuotaControl quotaControl_;
  TracedNetServices netServices_;
  TracedAccounts accounts_;
  Services services_;
};

}  // namespace paddock
