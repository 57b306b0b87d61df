// The URIs of a server, of which a configuration may have several with blanks between them.
#pragma once

#include <string>
#include <string_view>

#include "base/status.h"

namespace paddock {

// Whether one of them is of the scheme ("ldaps"), in any letter case.
bool hasUriOfScheme(std::string_view uris, std::string_view scheme);

// The error of connecting, which the library does not always report; `number` is the errno that it
// left, which may also be from asking for the host's name.
Status statusOfConnecting(const std::string& uris, int number);

}  // namespace paddock
