// The parts of the daemon that an exchange uses to answer its request.
#pragma once

#include <chrono>

#include "daemon/audit/audit_log.h"
#include "daemon/audit/audit_subject.h"
#include "daemon/audit/password_delays.h"
#include "daemon/audit/request_log.h"
#include "daemon/http/memory_budget.h"
#include "daemon/http/request_names.h"
#include "daemon/plugins/plugin_registry.h"
#include "daemon/running_configuration.h"

namespace paddock {

struct Service {
  RunningConfiguration& configuration;
  PluginRegistry& plugins;
  AuditLog& audit;
  RequestLog& requestLog;
  RequestIds ids;
  RepeatedRequests repeated = {};
  MemoryBudget memory{};
  std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
  PasswordDelays passwordDelays = {};
};

}  // namespace paddock
