#include "paddock/plugin.h"

#include "paddock_quotas/quotas_handler.h"

PADDOCK_PLUGIN(paddock::QuotasRequestHandler)
