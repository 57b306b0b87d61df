// The fixed GUIDs are defined in base.
#pragma once

#include "base/computed_guid.h"  // IWYU pragma: export
