// The answer to a request, ready for the wire.
#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "base/value.h"

namespace paddock {

// Encoding of a body.
enum class BodyForm { json, propertyList };

// The form that a Content-Type header names; nullopt for an unknown type. No type (an empty text),
// and the form type that curl sends by itself, read as JSON.
std::optional<BodyForm> formOfContentType(std::string_view header);

// The form that an Accept header asks for: property list when it names that type before JSON.
BodyForm formOfAccept(std::string_view header);

std::string_view contentTypeOf(BodyForm form);

// The status of an exception thrown by an operation.

// The status that the exception carries (see base/status.h), the errno of a system error, EIO for
// every other exception.
std::int64_t failureNumber(const std::exception& thrown);

struct Reply {
  int status = 200;
  std::string body;
  BodyForm form = BodyForm::json;
  std::string allow;      // the Allow header, unless empty
  bool close = false;     // the connection ends with it
  std::string etag = {};  // the ETag header, unless empty
};

// In the requested form; a body with a text that XML cannot represent is JSON in either case, since
// a property list would have another text in its place, which a client might send back.
Reply makeReply(int status, Dictionary body, BodyForm form);
Reply makeError(int status, std::string_view text, BodyForm form);

// A complete HTTP response that ends the connection, for where the HTTP library cannot send one.
std::string rawResponse(const Reply& reply, const std::string& requestId);

}  // namespace paddock
