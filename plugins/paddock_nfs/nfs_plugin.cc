#include "paddock/plugin.h"
#include "paddock_nfs/nfs_handler.h"

PADDOCK_PLUGIN(paddock::NfsRequestHandler)
