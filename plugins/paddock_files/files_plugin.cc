#include "paddock/plugin.h"
#include "paddock_files/files_handler.h"

PADDOCK_PLUGIN(paddock::FilesRequestHandler)
