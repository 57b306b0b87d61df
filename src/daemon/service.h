// What every request is answered with: the parts of the daemon that its exchange uses.
#pragma once

#include <chrono>

#include "configuration/configuration.h"
#include "daemon/access_policy.h"
#include "daemon/audit_log.h"
#include "daemon/plugin_registry.h"
#include "daemon/request_id.h"

namespace paddock {

struct Service {
  const Configuration& configuration;
  PluginRegistry& plugins;
  AuditLog& audit;
  AccessPolicy access;
  RequestIds ids;
  std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
};

}  // namespace paddock
