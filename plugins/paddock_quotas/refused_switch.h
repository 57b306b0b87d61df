// Switching a volume's quotas so that a refusal leaves nothing behind.
#pragma once

#include "base/value.h"
#include "platform/plugin_commands.h"

namespace paddock {

// The reply of setEnabled (quotas_handler.h). The sharing module makes a marker and a quota file
// before it asks the kernel, and keeps them when that refuses; those of them that were not there
// before, and are regular files of this process' user, are removed, by the descriptor of the folder
// that was opened first.
Dictionary switchQuotas(PluginCommands& commands, const Dictionary& request);

}  // namespace paddock
