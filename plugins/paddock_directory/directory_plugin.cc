#include "paddock/plugin.h"

#include "paddock_directory/directory_handler.h"

PADDOCK_PLUGIN(paddock::DirectoryRequestHandler)
