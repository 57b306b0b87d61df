#include "paddock/plugin.h"
#include "paddock_services/services_handler.h"

PADDOCK_PLUGIN(paddock::ServicesRequestHandler)
