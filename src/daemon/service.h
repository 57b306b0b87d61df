// What every request is answered with: the parts of the daemon that its exchange uses.
#pragma once

#include <chrono>

#include "daemon/audit_log.h"
#include "daemon/audit_subject.h"
#include "daemon/plugin_registry.h"
#include "daemon/request_id.h"
#include "daemon/request_log.h"
#include "daemon/running_configuration.h"

namespace paddock {

struct Service {
  RunningConfiguration& configuration;
  PluginRegistry& plugins;
  AuditLog& audit;
  RequestLog& requestLog;
  RequestIds ids;
  RepeatedRequests repeated = {};
  std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
};

}  // namespace paddock
