// Says of its operations what is no JSON (test_unreadable_description.json).

#include "plain_handler.h"

PADDOCK_PLUGIN(PlainHandler)
