#include "paddock/plugin.h"
#include "paddock_access/access_handler.h"

PADDOCK_PLUGIN(paddock::AccessRequestHandler)
