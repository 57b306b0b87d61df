#include "paddock/plugin.h"

#include "paddock_denials/denials_handler.h"

PADDOCK_PLUGIN(paddock::DenialsRequestHandler)
