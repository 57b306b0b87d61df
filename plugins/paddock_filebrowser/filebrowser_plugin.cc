#include "paddock/plugin.h"
#include "paddock_filebrowser/file_browser_handler.h"

PADDOCK_PLUGIN(paddock::FileBrowserRequestHandler)
