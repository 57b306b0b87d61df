#include "daemon/http/reply.h"

#include <microhttpd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "base/status.h"
#include "base/text.h"
#include "wire/json.h"
#include "wire/property_list.h"

namespace paddock {

namespace {

constexpr std::string_view kJson = "application/json";
constexpr std::string_view kPropertyList = "application/x-plist";
constexpr std::string_view kForm = "application/x-www-form-urlencoded";
constexpr std::string_view kBlanks = " \t";

// The type without its parameters, in lower case.
std::string bareType(std::string_view text) {
  text = text.substr(0, text.find(';'));
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return asciiLower(text.substr(first, text.find_last_not_of(kBlanks) - first + 1));
}

}  // namespace

std::optional<BodyForm> formOfContentType(std::string_view header) {
  const std::string type = bareType(header);
  if (type.empty() || type == kJson || type == kForm) return BodyForm::json;
  if (type == kPropertyList) return BodyForm::propertyList;
  return std::nullopt;
}

BodyForm formOfAccept(std::string_view header) {
  while (!header.empty()) {
    const std::size_t comma = header.find(',');
    const std::string type = bareType(header.substr(0, comma));
    if (type == kPropertyList) return BodyForm::propertyList;
    if (type == kJson) return BodyForm::json;
    if (comma == std::string_view::npos) break;
    header.remove_prefix(comma + 1);
  }
  return BodyForm::json;
}

std::string_view contentTypeOf(BodyForm form) {
  return form == BodyForm::json ? kJson : kPropertyList;
}

std::int64_t failureNumber(const std::exception& thrown) {
  if (const auto* numbered = dynamic_cast<const NumberedError*>(&thrown)) {
    return numbered->number().value_or(EIO);
  }
  if (const auto* system = dynamic_cast<const std::system_error*>(&thrown)) {
    return system->code().value();
  }
  return EIO;
}

Reply makeReply(int status, Dictionary body, BodyForm form) {
  const Value value(std::move(body));
  if (form == BodyForm::propertyList && !wire::fitsPropertyList(value)) form = BodyForm::json;
  return {status,
          form == BodyForm::json ? wire::writeJson(value) + "\n" : wire::writePropertyList(value),
          form,
          {},
          false};
}

Reply makeError(int status, std::string_view text, BodyForm form) {
  return makeReply(status, {{"error", text}}, form);
}

std::string rawResponse(const Reply& reply, const std::string& requestId) {
  const auto code = static_cast<unsigned>(reply.status);
  return std::string("HTTP/1.1 ")
      .append(std::to_string(reply.status))
      .append(" ")
      .append(MHD_get_reason_phrase_for(code))
      .append("\r\nConnection: close\r\nContent-Type: ")
      .append(contentTypeOf(reply.form))
      .append("\r\nContent-Length: ")
      .append(std::to_string(reply.body.size()))
      .append("\r\nX-Request-Id: ")
      .append(requestId)
      .append("\r\n\r\n")
      .append(reply.body);
}

}  // namespace paddock
