#include "daemon/exchange.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

#include "base/status.h"
#include "daemon/failure_number.h"
#include "daemon/state_tag.h"
#include "paddock/request_conditions.h"
#include "paddock/sys_logger.h"
#include "wire/json.h"
#include "wire/property_list.h"
#include "wire/text_position.h"

namespace paddock {
namespace {

constexpr std::size_t kFirstReserve = 1U << 20U;

// The path that a request is about, for the audit log.
std::optional<std::string> pathOf(const Dictionary& request) {
  const Dictionary* arguments = request.dictionary("optionalArguments");
  const std::string* path = arguments != nullptr ? arguments->string("path") : nullptr;
  if (path == nullptr) path = request.string("path");
  const Array* paths = request.array("paths");
  if (path == nullptr && paths != nullptr && !paths->empty()) path = paths->front().string();
  return path != nullptr ? std::optional(*path) : std::nullopt;
}

// Of a reply that reports a failure by its text alone, the text's.
std::int64_t statusOf(const Dictionary& reply) {
  for (const char* key : {"writeStatus", "status"}) {
    const Value* value = reply.find(key);
    if (value != nullptr && value->integer() != nullptr) return *value->integer();
  }
  const std::string* error = reply.string("error");
  return error != nullptr ? statusOfText(*error).value_or(EIO) : kSuccess;
}

std::optional<Value> parseBody(std::string_view text, BodyForm form, std::string& error) {
  return form == BodyForm::json ? wire::parseJson(text, error)
                                : wire::parsePropertyList(text, error);
}

std::string quoted(const std::string& text) { return wire::quoteForMessage(text); }

}  // namespace

Exchange::Exchange(Service& service, const Peer& peer, RequestHead head)
    : service_(service),
      peer_(peer),
      head_(std::move(head)),
      route_(routeOf(head_.target)),
      id_(service.ids.next()),
      replyForm_(formOfAccept(head_.accept)) {
  if (route_.kind != Route::Kind::operation) return;
  plugin_ = service_.plugins.find(route_.plugin);
  if (plugin_ != nullptr) operation_ = plugin_->find(route_.operation);
}

Reply Exchange::error(int status, std::string_view text) const {
  return makeError(status, text, replyForm_);
}

std::optional<Reply> Exchange::judge() {
  const RequestIdScope scope(id_);
  const Rights rights = service_.access.rightsOf(peer_.uid);
  if (rights == Rights::nothing) return forbidden();
  switch (route_.kind) {
    case Route::Kind::none:
      return error(404, "there is nothing at " + quoted(head_.target));
    case Route::Kind::health:
      return head_.method == "GET" ? describeHealth() : wrongMethod("GET");
    case Route::Kind::plugins:
      return head_.method == "GET" ? describePlugins() : wrongMethod("GET");
    case Route::Kind::operation:
      break;
  }
  return judgeOperation(rights);
}

std::optional<Reply> Exchange::judgeOperation(Rights rights) {
  if (plugin_ == nullptr) return error(404, "there is no plug-in " + quoted(route_.plugin));
  if (operation_ == nullptr) {
    return error(
        404, "plug-in " + quoted(route_.plugin) + " has no operation " + quoted(route_.operation));
  }
  if (operation_->changes && rights != Rights::everything) return forbidden();
  if (head_.method != "POST") return wrongMethod("POST");
  return judgeBody();
}

std::optional<Reply> Exchange::judgeBody() {
  const auto form = formOfContentType(head_.contentType);
  if (!form) {
    audit(EINVAL, std::nullopt);
    return error(415, "the content type " + quoted(head_.contentType) +
                          " is not known; application/json and application/x-plist are");
  }
  bodyForm_ = *form;
  if (head_.contentLength > service_.configuration.bodyBytes) return tooLong();
  return std::nullopt;
}

Reply Exchange::forbidden() {
  audit(std::nullopt, std::nullopt);
  return error(403, "user " + std::to_string(peer_.uid) + " is not allowed to do this");
}

Reply Exchange::refuseBusy(std::string_view why) {
  audit(std::nullopt, std::nullopt);
  Reply reply = error(503, why);
  reply.close = true;
  return reply;
}

Reply Exchange::wrongMethod(const char* allowed) const {
  Reply reply = error(405, "the method is " + std::string(allowed) + " here");
  reply.allow = allowed;
  return reply;
}

Reply Exchange::tooLong() {
  audit(EFBIG, std::nullopt);
  Reply reply = error(413, "the body is longer than " +
                               std::to_string(service_.configuration.bodyBytes) + " bytes");
  reply.close = true;
  return reply;
}

Reply Exchange::describeHealth() const {
  const auto uptime = std::chrono::duration_cast<std::chrono::seconds>(
      std::chrono::steady_clock::now() - service_.started);
  return makeReply(200,
                   {{"status", "ok"},
                    {"version", PADDOCK_VERSION},
                    {"uptimeSeconds", std::int64_t{uptime.count()}},
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

bool Exchange::receive(std::string_view bytes) {
  const std::size_t limit = service_.configuration.bodyBytes;
  if (bytes.size() > limit - std::min(limit, body_.size())) return false;
  if (body_.empty()) {
    body_.reserve(std::min<std::uint64_t>({head_.contentLength, limit, kFirstReserve}));
  }
  body_.append(bytes);
  return true;
}

Reply Exchange::finish() {
  const RequestIdScope scope(id_);
  std::string problem;
  auto value = parseBody(body_, bodyForm_, problem);
  if (!value) return malformed(problem);
  Dictionary* request = value->dictionary();
  if (request == nullptr) {
    const std::size_t start = std::min(body_.find_first_not_of(" \t\r\n"), body_.size());
    return malformed(wire::describeAt(body_, start, "the body is not a dictionary"));
  }
  body_ = std::string();
  return run(*request);
}

Reply Exchange::malformed(const std::string& problem) {
  audit(EINVAL, std::nullopt);
  return error(400, problem);
}

Reply Exchange::run(const Dictionary& request) {
  try {
    RequestConditions conditions(head_.ifMatch, stateTag);
    const RequestConditionsScope scope(&conditions);
    Dictionary dictionary = service_.plugins.perform(*plugin_, operation_->name, request);
    audit(statusOf(dictionary), pathOf(request));
    Reply reply = makeReply(200, std::move(dictionary), replyForm_);
    reply.etag = conditions.replyTag();
    return reply;
  } catch (const PreconditionFailed& refused) {
    return refuseState(request, refused.what());
  } catch (const std::exception& thrown) {
    return failed(request, thrown.what(), failureNumber(thrown));
  } catch (...) {
    return failed(request, "an exception that is not a std::exception", EIO);
  }
}

Reply Exchange::refuseState(const Dictionary& request, const char* what) {
  audit(ECANCELED, pathOf(request));
  return error(412, what);
}

Reply Exchange::failed(const Dictionary& request, const char* what, std::int64_t number) {
  logMessage(3,
             "operation " + route_.operation + " of plug-in " + route_.plugin + " failed: " + what);
  audit(number, pathOf(request));
  return error(500, what);
}

bool Exchange::isAudited() const {
  return operation_ != nullptr && operation_->changes && head_.method == "POST";
}

void Exchange::audit(std::optional<std::int64_t> status, std::optional<std::string> path) {
  if (!isAudited()) return;
  const auto duration = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - started_);
  service_.audit.write(
      {time_, id_, peer_, route_.plugin, route_.operation, std::move(path), status, duration});
}

}  // namespace paddock
