// The answer to a request, ready for the wire.
#pragma once

#include <string>
#include <string_view>

#include "base/value.h"
#include "daemon/media_type.h"

namespace paddock {

struct Reply {
  int status = 200;
  std::string body;
  BodyForm form = BodyForm::json;
  std::string allow;      // the Allow header, unless empty
  bool close = false;     // the connection ends with it
  std::string etag = {};  // the ETag header, unless empty
};

Reply makeReply(int status, Dictionary body, BodyForm form);
Reply makeError(int status, std::string_view text, BodyForm form);

// A whole HTTP response that ends the connection, for where the HTTP library cannot send one.
std::string rawResponse(const Reply& reply, const std::string& requestId);

}  // namespace paddock
