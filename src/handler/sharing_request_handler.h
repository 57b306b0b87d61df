// The sharing module's interface to the host.
//
// Every request operation but `getStateWithRequest` and `getLogPathsWithRequest` holds
// `gSettingsDictLock` from before its first read of shared state until its reply is complete, so
// requests from several threads run one after the other. The lock is not recursive; it is released
// when an exception leaves an operation. Operations install no handlers of their own. An operation
// that does not get the lock in time throws OperationBusy (settings_lock.h).
//
// Request keys that are missing or of the wrong type read as null; no operation rejects a request
// because of them. Replies leave out keys whose value would be null.
#pragma once

#include <memory>

#include "base/status.h"
#include "base/value.h"
#include "handler/settings_lock.h"
#include "paddock/plugin_request_handler.h"
#include "platform/net_service.h"

namespace paddock {

class SharedFolders;

class SharingRequestHandler : public PluginRequestHandler, public NetServiceOwner {
 public:
  // The class's one-time initialisation: creates `gSettingsDictLock`. Further calls do nothing.
  static void initialize();

  SharingRequestHandler();
  // Releases the publication object, without stopping it explicitly.
  ~SharingRequestHandler() override;

  // From now on records the folders of share points, and refuses to change privileges where a
  // folder was replaced. Null, the initial value: nothing is recorded. To be called before the
  // first request; the service must outlive this object.
  void setSharedFolders(SharedFolders* folders) { sharedFolders_ = folders; }

  PluginRequestHandler* init() override;
  std::vector<Operation> operations() const override;
  Dictionary performOperation(std::string_view name, const Dictionary& request) override;

  // The first tick (`count` 1) advertises the backup share points. Every tick rereads a changed
  // exports file, unless a request is running. Always returns 0; errors are logged. Never waits for
  // the lock.
  std::int64_t doIdleAtCount(std::uint64_t count) override;

  // The module runs no service of its own: these do nothing and return null.
  Value startServiceWithVariant(const Value& variant) override;
  Value stopServiceWithVariant(const Value& variant) override;
  Value recycleServiceWithVariant(const Value& variant) override;

  // "state": always "UNKNOWN"; "readWriteSettingsVersion": 1.
  Dictionary getStateWithRequest(const Dictionary& request);
  // "consoleLog", "sampleLog": fixed paths.
  Dictionary getLogPathsWithRequest(const Dictionary& request);
  // "optionalArguments" -> "path" selects one folder, without it the reply is about the whole
  // server. Reply: "configuration" and "readStatus".
  Dictionary readSettingsWithRequest(const Dictionary& request);
  // Reply: "sharePointList", "readStatus", and "error" when the status is not 0.
  Dictionary getSharePointListWithRequest(const Dictionary& request);
  // Applies "configuration" and reads it back. Reply: "configuration", "writeStatus",
  // "readStatus", and "writeError" when the write status is not 0.
  Dictionary writeSettingsWithRequest(const Dictionary& request);
  // Reply: "dsNodeArray", the paths of the directory nodes that can be written, in search order.
  Dictionary getDSNodesWithRequest(const Dictionary& request);
  // Whether "dsAdminName" with "dsAdminPW" may create records on the node "dsNodeName": a record is
  // made there and removed at once. Reply: "canAuth", and "error" when the status is not 0. Throws
  // DirectoryError when there is no such node, or when it cannot be asked.
  Dictionary canAuthDSNodeWithRequest(const Dictionary& request);

  // "acl": the entries that "path" would have under its parent folder's inheritable ones.
  Dictionary fileInheritACLWithRequest(const Dictionary& request);
  // Starts propagating what the six "prop..." flags select from the first of "paths" down. Reply:
  // "path", "copyPrivsPid" and "copyPrivsStatusFile". Throws for an empty "paths".
  Dictionary startPropagateWithRequest(const Dictionary& request);
  // "status": the contents of the run's status file, unless empty.
  Dictionary statusCopyPrivsWithRequest(const Dictionary& request);
  // "bitmap": the permissions of the user "uid" on "path"; 0 when they cannot be determined.
  Dictionary getEffectivePermsWithRequest(const Dictionary& request);

  std::shared_ptr<NetService> netService() const override;
  void setNetService(std::shared_ptr<NetService> service) override;
  Mutex& renewalMutex() override PADDOCK_RETURN_CAPABILITY(renewalMutex_) { return renewalMutex_; }

  // Callbacks of the publication object: they do nothing.
  void netServiceWillPublish(NetService& sender) override;
  void netServiceDidNotPublish(NetService& sender, const Dictionary& errors) override;
  void netServiceDidStop(NetService& sender) override;

 private:
  Dictionary readSettings(const Dictionary& request, SettingsLockGuard::Wait wait);

  SharedFolders* sharedFolders_ = nullptr;
  mutable Mutex netServiceMutex_;
  Mutex renewalMutex_;
  std::shared_ptr<NetService> netService_ PADDOCK_GUARDED_BY(netServiceMutex_);
};

}  // namespace paddock
