#include "paddock_quotas/quotas_handler.h"

#include <stdexcept>
#include <string>

#include "paddock/host.h"
#include "paddock_quotas/refused_switch.h"
#include "platform/host/host_services.h"
#include "platform/linux/accounts/linux_accounts.h"
#include "platform/linux/configured_options.h"
#include "platform/linux/files/linux_volume_info.h"
#include "platform/linux/process/linux_clock.h"
#include "platform/linux/quotas/kernel_quota_control.h"
#include "platform/linux/quotas/kernel_quota_records.h"

namespace paddock {

namespace {

bool kernelKeepsQuotas() {
  const Dictionary* volumes = host().configuration().dictionary("volumes");
  const Value* backend = volumes != nullptr ? volumes->find("quota_backend") : nullptr;
  return backend == nullptr || *backend != Value("accounting");
}

}  // namespace

struct QuotasRequestHandler::OwnServices {
  LinuxClock clock;
  LinuxDirectoryService directory{configuredDirectory(host().configuration(), host().root())};
  LinuxAccounts accounts{directory};
  LinuxVolumeInfo volumes;
  KernelQuotaControl control{volumes};
  KernelQuotaRecords records{volumes};
  HostPluginCommands commands;
};

QuotasRequestHandler::QuotasRequestHandler() : own_(std::make_unique<OwnServices>()) {
  services_ = {&own_->accounts, &own_->clock, &own_->control,
               kernelKeepsQuotas() ? &own_->records : nullptr};
  commands_ = &own_->commands;
}

QuotasRequestHandler::QuotasRequestHandler(const QuotaServices& services, PluginCommands& commands)
    : services_(services), commands_(&commands) {}

QuotasRequestHandler::~QuotasRequestHandler() = default;

std::vector<PluginRequestHandler::Operation> QuotasRequestHandler::operations() const {
  return {{"getUsage", false}, {"setLimits", true}, {"setEnabled", true}};
}

Dictionary QuotasRequestHandler::performOperation(std::string_view name,
                                                  const Dictionary& request) {
  if (name == "getUsage") return getQuotaUsage(services_, request);
  const std::lock_guard lock(changing_);
  if (name == "setLimits") return setQuotaLimits(services_, request);
  if (name == "setEnabled") return switchQuotas(*commands_, request);
  throw std::invalid_argument("no operation " + std::string(name));
}

}  // namespace paddock
