// Needs a library that is not installed.

#include "plain_handler.h"

extern "C" int paddockTestAbsent();

namespace {

struct NeedingHandler : PlainHandler {
  NeedingHandler() { (void)paddockTestAbsent(); }
};

}  // namespace

PADDOCK_PLUGIN(NeedingHandler)
