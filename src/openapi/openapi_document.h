// The daemon's interface as an OpenAPI 3.1 document (https://spec.openapis.org/oas/v3.1.0).
//
// The document begins as skeleton.json: what the interface is, the components that all operations
// share, and, under "paths", the daemon's own endpoints. These and what plug-ins say of their
// operations (paddock/plugin.h) have the same short form; an endpoint has besides "rights" (who
// may call it: "viewers" or "administrators"), "parameters" as OpenAPI has them and, in an example,
// the requested "target".
//
// Extensions of an operation: "x-rights", "viewers" (they and administrators) or "administrators";
// "x-audited", whether a request leaves an audit line; "x-audit", what that line has besides what
// all have; "x-statuses", when which status comes. Of an example of a response: "x-request", the
// "method", "target" and "body" that it answers; "x-audit", the audit line.
#pragma once

#include <string>
#include <vector>

#include "base/value.h"
#include "paddock/plugin_request_handler.h"

namespace paddock::openapi {

struct DescribedPlugin {
  std::string name;
  const std::vector<PluginRequestHandler::Operation>& operations;
  const Dictionary& description;  // may be empty
};

// Contains every operation of the plug-ins and every endpoint, also those without a description; a
// described endpoint that is not one of `endpoints` (paths with their parameters in braces) is
// omitted.
Dictionary openApiDocument(const std::vector<DescribedPlugin>& plugins,
                           const std::vector<std::string>& endpoints, const std::string& version);

}  // namespace paddock::openapi
