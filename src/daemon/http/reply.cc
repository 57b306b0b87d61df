#include "daemon/http/reply.h"

#include <microhttpd.h>

#include <utility>

#include "wire/json.h"
#include "wire/property_list.h"

namespace paddock {

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
