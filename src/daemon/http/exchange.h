// One request and its reply, independent of the HTTP library.
//
// Life cycle: `judge` once the head is there; when it gives no reply, `receive` for every part of
// the body and `finish` at its end. Belongs to one thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "daemon/audit/access_policy.h"
#include "daemon/audit/audit_subject.h"
#include "daemon/http/listening_socket.h"
#include "daemon/http/memory_budget.h"
#include "daemon/http/reply.h"
#include "daemon/http/request_names.h"
#include "daemon/service.h"
#include "paddock/password_checks.h"

namespace paddock {

struct RequestHead {
  std::string method;
  std::string target;
  std::string contentType;
  std::string accept;
  std::uint64_t contentLength = 0;
  bool chunked = false;
  std::string ambiguity = {};  // why the end of the body is ambiguous; empty when it is not
  std::optional<std::string> ifMatch = {};
  std::optional<std::string> limit = std::nullopt;  // of the query

  bool hasBody() const { return chunked || !ambiguity.empty() || contentLength > 0; }
};

class Exchange {
 public:
  Exchange(Service& service, const Peer& peer, RequestHead head);
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;
  ~Exchange();

  const std::string& id() const { return id_; }
  const RequestHead& head() const { return head_; }
  // Of the peer, as they were when the request came.
  Rights rights() const { return rights_; }

  // Checks the peer, then the path, the method and the rest of the head. Returns a reply when the
  // body is not wanted.
  std::optional<Reply> judge();
  // Refuses the request whatever it is (503).
  Reply refuseBusy(std::string_view why);
  // Refuses a request that violates HTTP.
  Reply refuseForm(int status, std::string_view why);

  // Receives a part of the body. Returns a reply when no more is wanted.
  std::optional<Reply> receive(std::string_view bytes);
  // Runs the operation.
  Reply finish();

 private:
  std::optional<Reply> judgeOperation();
  std::optional<Reply> judgeBody();
  Rights neededRights() const;
  Reply forbidden(Rights needed, AuditSubject subject = {});
  Reply wrongMethod(const char* allowed) const;
  Reply describePlugins() const;
  Reply describeInterface() const;
  Reply describeHealth() const;
  Reply describeRequestLog();
  Reply describeAudit();
  std::size_t bodyLimit() const;
  bool makeRoom(std::size_t size);
  Reply tooLong();
  Reply withoutMemory();
  Reply malformed(const std::string& error);
  Reply run(const Dictionary& request);
  Reply perform(const Dictionary& request);
  std::optional<Reply> awaitTurn(const Dictionary& request);
  void notePassword(const Dictionary& request, const PasswordCheck& check);
  Reply refuseUnaudited(const Dictionary& request, const char* what);
  Reply refuse(const Dictionary& request, std::int64_t number, int httpStatus, const char* what);
  Reply failed(const Dictionary& request, const char* what, std::int64_t number);
  Reply error(int status, std::string_view text) const;
  // The request by which this process proves that it answers: no log is kept of it.
  bool isOwn() const;
  bool isAudited() const;
  AuditSubject subjectOf(const Dictionary& request) const;
  AuditEntry entryOf(std::optional<std::int64_t> status, AuditSubject subject) const;
  void audit(std::optional<std::int64_t> status, AuditSubject subject);

  Service& service_;
  Peer peer_;
  // As it was when the request came.
  std::shared_ptr<const Configuration> configuration_;
  AccessPolicy access_;
  const Rights rights_;
  MemoryShare memory_;
  RequestHead head_;
  Route route_;
  std::string id_;
  std::string parent_;  // the request whose program sent this one; empty: none
  BodyForm replyForm_;
  BodyForm bodyForm_ = BodyForm::json;
  const LoadedPlugin* plugin_ = nullptr;
  const PluginRequestHandler::Operation* operation_ = nullptr;
  bool triesPassword_ = false;  // it only reads, and carries credentials
  std::string body_;
  std::size_t bodyMemory_ = 0;  // bytes reserved for it
  std::chrono::system_clock::time_point time_ = std::chrono::system_clock::now();
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};

}  // namespace paddock
