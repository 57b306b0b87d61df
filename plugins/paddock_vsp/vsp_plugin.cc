#include "paddock/plugin.h"
#include "paddock_vsp/vsp_handler.h"

PADDOCK_PLUGIN(paddock::VspRequestHandler)
