// The answer to a request, ready for the wire.
#pragma once

#include <string>
#include <string_view>

#include "base/value.h"
#include "daemon/http/media_type.h"

namespace paddock {

struct Reply {
  int status = 200;
  std::string body;
  BodyForm form = BodyForm::json;
  std::string allow;      // the Allow header, unless empty
  bool close = false;     // the connection ends with it
  std::string etag = {};  // the ETag header, unless empty
};

// In the form that was asked for; a body with a text that XML cannot carry is JSON in either case,
// since a property list would have another text in its place, which a client might send back.
Reply makeReply(int status, Dictionary body, BodyForm form);
Reply makeError(int status, std::string_view text, BodyForm form);

// A whole HTTP response that ends the connection, for where the HTTP library cannot send one.
std::string rawResponse(const Reply& reply, const std::string& requestId);

}  // namespace paddock
