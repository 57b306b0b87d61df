#include "daemon/http/exchange.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

#include "base/status.h"
#include "base/text.h"
#include "daemon/http/reply.h"
#include "daemon/http/state_tag.h"
#include "openapi/openapi_document.h"
#include "paddock/request_conditions.h"
#include "paddock/run_program.h"
#include "paddock/sys_logger.h"
#include "paddock/unanswered_nodes.h"
#include "protocol/keys.h"
#include "wire/json.h"
#include "wire/property_list.h"
#include "wire/tree_bounds.h"

namespace paddock {
namespace {

constexpr std::size_t kFirstReserve = 1U << 20U;
constexpr std::int64_t kAuditLines = 100;
constexpr std::int64_t kMostAuditLines = 10000;
constexpr std::size_t kLongestLoggedName = 256;
constexpr std::size_t kSmallReply = 64U << 10U;
constexpr const char* kNoMemory =
    "no memory left for bodies ([limits] memory_bytes); ask again later, or send less";

// Of a reply that reports a failure by its text alone, the text's.
std::int64_t statusOf(const Dictionary& reply) {
  for (const char* key : {protocol::kWriteStatus, "status"}) {
    const Value* value = reply.find(key);
    if (value != nullptr && value->integer() != nullptr) return *value->integer();
  }
  const std::string* error = reply.string("error");
  return error != nullptr ? statusOfText(*error).value_or(EIO) : kSuccess;
}

std::optional<Value> parseBody(std::string_view text, BodyForm form, std::string& error,
                               const wire::TreeBounds& bounds) {
  return form == BodyForm::json ? wire::parseJson(text, error, bounds)
                                : wire::parsePropertyList(text, error, bounds);
}

Array texts(const std::vector<std::string>& list) { return {list.begin(), list.end()}; }

Dictionary describeConfiguration(const ConfigurationState& state) {
  return {{"file", state.file},
          {"read", timeText(state.read)},
          {"problems", texts(state.problems)},
          {"awaitingRestart", texts(state.awaitingRestart)}};
}

Array describeUnansweredNodes() {
  Array nodes;
  for (const UnansweredNode& node : unansweredNodes()) {
    nodes.emplace_back(Dictionary{{"path", node.path},
                                  {"state", nodeTroubleName(node.trouble)},
                                  {"error", node.error},
                                  {"since", timeText(node.since)}});
  }
  return nodes;
}

std::string quoted(const std::string& text) { return wire::quoteForMessage(text); }

}  // namespace

Exchange::Exchange(Service& service, const Peer& peer, RequestHead head)
    : service_(service),
      peer_(peer),
      configuration_(service.configuration.current()),
      access_(configuration_->adminGroup, configuration_->viewGroup),
      rights_(access_.rightsOf(peer.uid)),
      memory_(service.memory, rights_, isRunningProgram(peer.process)),
      head_(std::move(head)),
      route_(routeOf(head_.target)),
      id_(service.ids.next()),
      replyForm_(formOfAccept(head_.accept)) {
  parent_ = requestOfProgram(peer_.process);
  if (!isOwn()) service_.requestLog.begin(id_, peer_.uid, parent_);
  if (route_.kind != Route::Kind::operation) return;
  plugin_ = service_.plugins.find(route_.plugin);
  if (plugin_ != nullptr) operation_ = plugin_->find(route_.operation);
}

Exchange::~Exchange() {
  if (!isOwn()) service_.requestLog.end(id_, rights_ == Rights::nothing);
}

bool Exchange::isOwn() const { return peer_.process == ::getpid(); }

Reply Exchange::error(int status, std::string_view text) const {
  return makeError(status, text, replyForm_);
}

std::optional<Reply> Exchange::judge() {
  const RequestIdScope scope(id_);
  const bool ofRequest = route_.kind == Route::Kind::requestLog;
  if (!ofRequest && rights_ < neededRights()) return forbidden(neededRights());
  if (!head_.ambiguity.empty()) return refuseForm(400, head_.ambiguity);
  switch (route_.kind) {
    case Route::Kind::none:
      return error(404, "there is nothing at " + quoted(head_.target));
    case Route::Kind::health:
      return head_.method == "GET" ? describeHealth() : wrongMethod("GET");
    case Route::Kind::plugins:
      return head_.method == "GET" ? describePlugins() : wrongMethod("GET");
    case Route::Kind::openApi:
      return head_.method == "GET" ? describeInterface() : wrongMethod("GET");
    case Route::Kind::audit:
      return head_.method == "GET" ? describeAudit() : wrongMethod("GET");
    case Route::Kind::requestLog:
      return describeRequestLog();
    case Route::Kind::operation:
      break;
  }
  return judgeOperation();
}

std::optional<Reply> Exchange::judgeOperation() {
  if (plugin_ == nullptr) return error(404, "there is no plug-in " + quoted(route_.plugin));
  if (operation_ == nullptr) {
    return error(
        404, "plug-in " + quoted(route_.plugin) + " has no operation " + quoted(route_.operation));
  }
  if (head_.method != "POST") return wrongMethod("POST");
  return judgeBody();
}

std::optional<Reply> Exchange::judgeBody() {
  const auto form = formOfContentType(head_.contentType);
  if (!form) {
    audit(EINVAL, {});
    return error(415, "the content type " + quoted(head_.contentType) +
                          " is not known; application/json and application/x-plist are");
  }
  bodyForm_ = *form;
  if (head_.contentLength > bodyLimit()) return tooLong();
  return std::nullopt;
}

Rights Exchange::neededRights() const {
  const bool changes = operation_ != nullptr && operation_->changes;
  const bool changesOrSecrets = changes || triesPassword_ || route_.kind == Route::Kind::audit ||
                                route_.kind == Route::Kind::requestLog;
  return changesOrSecrets ? Rights::everything : Rights::viewing;
}

Reply Exchange::forbidden(Rights needed, AuditSubject subject) {
  audit(std::nullopt, std::move(subject));
  return error(403, access_.refusal(peer_.uid, needed));
}

Reply Exchange::refuseBusy(std::string_view why) {
  audit(std::nullopt, {});
  Reply reply = error(503, why);
  reply.close = true;
  return reply;
}

Reply Exchange::refuseForm(int status, std::string_view why) {
  audit(EINVAL, {});
  Reply reply = error(status, why);
  reply.close = true;
  return reply;
}

Reply Exchange::wrongMethod(const char* allowed) const {
  Reply reply = error(405, "the method is " + std::string(allowed) + " here");
  reply.allow = allowed;
  return reply;
}

std::size_t Exchange::bodyLimit() const {
  return operation_->changes
             ? configuration_->bodyBytes
             : std::min(configuration_->bodyBytes, configuration_->readingBodyBytes);
}

Reply Exchange::tooLong() {
  audit(EFBIG, {});
  Reply reply = error(413, "the body is longer than " + std::to_string(bodyLimit()) + " bytes");
  reply.close = true;
  return reply;
}

Reply Exchange::withoutMemory() { return refuseBusy(kNoMemory); }

Reply Exchange::describeHealth() const {
  const auto uptime = std::chrono::duration_cast<std::chrono::seconds>(
      std::chrono::steady_clock::now() - service_.started);
  return makeReply(200,
                   {{"status", "ok"},
                    {"version", PADDOCK_VERSION},
                    {"uptimeSeconds", std::int64_t{uptime.count()}},
                    {"configuration", describeConfiguration(service_.configuration.state())},
                    {"nodes", describeUnansweredNodes()},
                    {"plugins", service_.plugins.plugins().size()}},
                   replyForm_);
}

Reply Exchange::describePlugins() const {
  Array plugins;
  for (const LoadedPlugin& plugin : service_.plugins.plugins()) {
    Array operations;
    for (const auto& operation : plugin.operations) operations.emplace_back(operation.name);
    plugins.emplace_back(Dictionary{{"name", plugin.name}, {"operations", std::move(operations)}});
  }
  return makeReply(200, {{"plugins", std::move(plugins)}}, replyForm_);
}

Reply Exchange::describeInterface() const {
  std::vector<openapi::DescribedPlugin> plugins;
  for (const LoadedPlugin& plugin : service_.plugins.plugins())
    plugins.push_back({plugin.name, plugin.operations, plugin.description});
  std::vector<std::string> endpoints;
  endpoints.reserve(kEndpoints.size());
  for (const Endpoint& endpoint : kEndpoints) endpoints.emplace_back(endpoint.path);
  return makeReply(200, openapi::openApiDocument(plugins, endpoints, PADDOCK_VERSION), replyForm_);
}

// For administrators, and for who made that request, whatever else they may do.
Reply Exchange::describeRequestLog() {
  const auto request = service_.requestLog.find(route_.request);
  const bool own = request && request->user == peer_.uid;
  if (rights_ == Rights::nothing && !own) return forbidden(Rights::everything);
  if (head_.method != "GET") return wrongMethod("GET");
  if (!request) return error(404, "no log is kept of a request " + quoted(route_.request));
  if (rights_ != Rights::everything && !own) return forbidden(Rights::everything);
  Array lines;
  for (const LoggedLine& line : request->lines) {
    lines.emplace_back(Dictionary{{"time", timeText(line.time)},
                                  {"level", levelOfPriority(line.priority)},
                                  {"text", line.text}});
  }
  return makeReply(200, {{"request", route_.request}, {"lines", std::move(lines)}}, replyForm_);
}

// The newest lines, the oldest of them first; one that is no dictionary is left out.
Reply Exchange::describeAudit() {
  const auto limit = head_.limit ? parseInteger(*head_.limit) : std::optional(kAuditLines);
  if (!limit || *limit < 1 || *limit > kMostAuditLines) {
    return error(400, "\"limit\" must be an integer from 1 to " + std::to_string(kMostAuditLines));
  }
  Array lines;
  try {
    for (const std::string& line : service_.audit.newest(static_cast<std::size_t>(*limit))) {
      std::string problem;
      auto entry = wire::parseJson(line, problem);
      if (entry && entry->dictionary() != nullptr) lines.push_back(std::move(*entry));
    }
  } catch (const std::system_error& failed) {
    logMessage(3, std::string("audit log not read: ") + failed.what());
    return error(500, failed.what());
  }
  return makeReply(200, {{"lines", std::move(lines)}}, replyForm_);
}

std::optional<Reply> Exchange::receive(std::string_view bytes) {
  if (bytes.size() > bodyLimit() - std::min(bodyLimit(), body_.size())) return tooLong();
  if (!makeRoom(body_.size() + bytes.size())) return withoutMemory();
  body_.append(bytes);
  return std::nullopt;
}

// A body takes what it needs as it comes: a length that is only announced takes nothing.
bool Exchange::makeRoom(std::size_t size) {
  if (size <= bodyMemory_) return true;
  const std::size_t first = std::min<std::uint64_t>(head_.contentLength, kFirstReserve);
  const std::size_t wanted = std::min(std::max({size, first, 2 * bodyMemory_}), bodyLimit());
  if (!memory_.take(wanted)) return false;
  body_.reserve(wanted);
  memory_.giveBack(std::exchange(bodyMemory_, wanted));
  return true;
}

Reply Exchange::finish() {
  const RequestIdScope scope(id_);
  std::string problem;
  bool refused = false;
  std::size_t treeMemory = 0;
  const auto take = [this, &refused, &treeMemory](std::size_t bytes) {
    refused = !memory_.take(bytes);
    if (!refused) treeMemory += bytes;
    return !refused;
  };
  auto value = parseBody(body_, bodyForm_, problem, {configuration_->bodyValues, take});
  if (refused) return withoutMemory();
  if (!value) return malformed(problem);
  Dictionary* request = value->dictionary();
  if (request == nullptr) {
    const std::size_t start = std::min(body_.find_first_not_of(" \t\r\n"), body_.size());
    return malformed(wire::describeAt(body_, start, "the body is not a dictionary"));
  }
  body_ = std::string();
  memory_.giveBack(std::exchange(bodyMemory_, 0));
  Reply reply = run(*request);
  value.reset();
  memory_.giveBack(treeMemory);
  return reply;
}

Reply Exchange::malformed(const std::string& problem) {
  audit(EINVAL, {});
  return error(400, problem);
}

Reply Exchange::run(const Dictionary& request) {
  triesPassword_ = !operation_->changes && carriesCredentials(request);
  if (rights_ < neededRights()) return forbidden(neededRights(), subjectOf(request));
  if (auto refusal = awaitTurn(request)) return std::move(*refusal);
  if (!isAudited()) return perform(request);
  std::optional<AuditedChange> change;
  try {
    change.emplace(service_.audit, entryOf(std::nullopt, subjectOf(request)),
                   configuration_->auditRequired);
  } catch (const std::system_error& error) {
    return refuseUnaudited(request, error.what());
  }
  return perform(request);
}

// Who tries passwords that do not match waits longer and longer.
std::optional<Reply> Exchange::awaitTurn(const Dictionary& request) {
  const auto names = namesTried(request);
  if (names.empty()) return std::nullopt;
  const auto now = PasswordDelays::Clock::now();
  if (const auto wait = service_.passwordDelays.takeTurn(peer_.uid, names, now)) {
    std::this_thread::sleep_for(*wait);
    return std::nullopt;
  }
  audit(std::nullopt, subjectOf(request));
  return error(503,
               "too many passwords for this name did not match, and others are waiting to try one: "
               "try again in a minute");
}

void Exchange::notePassword(const Dictionary& request, const PasswordCheck& check) {
  service_.passwordDelays.note(peer_.uid, check.name, check.passed, PasswordDelays::Clock::now());
  if (check.passed) return;
  const std::string whose =
      mayBeTold(request, check.name)
          ? "the password of " + quoted(std::string(utf8Prefix(check.name, kLongestLoggedName)))
          : "\"dsCredentials\"";
  logMessage(4, whose + " did not match on the directory node " + check.node);
}

Reply Exchange::refuseUnaudited(const Dictionary& request, const char* what) {
  audit(std::nullopt, subjectOf(request));
  return error(503, std::string("nothing was done, because its line in the audit log could not be "
                                "written, as [audit] required asks: ") +
                        what + "; mend that and try again");
}

Reply Exchange::perform(const Dictionary& request) {
  try {
    RequestConditions conditions(head_.ifMatch, stateTag);
    const PasswordCheckScope passwords(
        [&](const PasswordCheck& check) { notePassword(request, check); });
    const RequestConditionsScope scope(&conditions);
    Dictionary dictionary = service_.plugins.perform(*plugin_, operation_->name, request);
    const RepeatedRequests::Asked asked{peer_.uid, plugin_->name + "/" + operation_->name, request};
    if (!service_.repeated.isRepeat(asked, plugin_->auditedOnce(operation_->name), dictionary)) {
      audit(statusOf(dictionary), subjectOf(request));
    }
    Reply reply = makeReply(200, std::move(dictionary), replyForm_);
    reply.etag = conditions.replyTag();
    // What was changed is said, whatever it takes.
    if (operation_->changes || reply.body.size() <= kSmallReply) {
      memory_.takeAnyway(reply.body.size());
    } else if (!memory_.take(reply.body.size())) {
      return withoutMemory();
    }
    return reply;
  } catch (const PreconditionFailed& refused) {
    return refuse(request, ECANCELED, 412, refused.what());
  } catch (const OperationBusy& busy) {
    return refuse(request, EBUSY, 503, busy.what());
  } catch (const std::exception& thrown) {
    return failed(request, thrown.what(), failureNumber(thrown));
  } catch (...) {
    return failed(request, "an exception that is not a std::exception", EIO);
  }
}

Reply Exchange::refuse(const Dictionary& request, std::int64_t number, int httpStatus,
                       const char* what) {
  audit(number, subjectOf(request));
  return error(httpStatus, what);
}

Reply Exchange::failed(const Dictionary& request, const char* what, std::int64_t number) {
  logMessage(3,
             "operation " + route_.operation + " of plug-in " + route_.plugin + " failed: " + what);
  audit(number, subjectOf(request));
  return error(500, what);
}

bool Exchange::isAudited() const {
  return operation_ != nullptr && (operation_->changes || triesPassword_) && head_.method == "POST";
}

AuditSubject Exchange::subjectOf(const Dictionary& request) const {
  return triesPassword_ ? subjectOfAttempt(request) : paddock::subjectOf(route_.plugin, request);
}

AuditEntry Exchange::entryOf(std::optional<std::int64_t> status, AuditSubject subject) const {
  const auto duration = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - started_);
  AuditEntry entry;
  entry.time = time_;
  entry.request = id_;
  entry.peer = peer_;
  entry.plugin = route_.plugin;
  entry.operation = route_.operation;
  entry.subject = std::move(subject);
  entry.status = status;
  entry.duration = duration;
  entry.parent = parent_;
  return entry;
}

void Exchange::audit(std::optional<std::int64_t> status, AuditSubject subject) {
  if (!isAudited()) return;
  // Who may not do it was not let in, whatever else was wrong.
  if (rights_ < neededRights()) status = std::nullopt;
  const AuditEntry entry = entryOf(status, std::move(subject));
  if (status) {
    service_.audit.write(entry);
  } else {
    service_.audit.writeRefusal(entry);
  }
}

}  // namespace paddock
