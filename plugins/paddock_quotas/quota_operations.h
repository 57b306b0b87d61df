// What the kernel keeps of a volume's users and groups, read and limited.
#pragma once

#include "base/value.h"
#include "platform/accounts.h"
#include "platform/machine_information.h"
#include "platform/quota_control.h"
#include "platform/quota_records.h"

namespace paddock {

struct QuotaServices {
  Accounts* accounts = nullptr;
  Clock* clock = nullptr;
  QuotaControl* control = nullptr;
  QuotaRecords* records = nullptr;  // null: nothing keeps any
};

// The replies of getUsage and setLimits (quotas_handler.h).
Dictionary getQuotaUsage(const QuotaServices& services, const Dictionary& request);
Dictionary setQuotaLimits(const QuotaServices& services, const Dictionary& request);

// A reply that is nothing but a failure.
Dictionary quotaFailure(int status, const std::string& message);

}  // namespace paddock
