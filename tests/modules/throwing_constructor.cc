// Its constructor throws.

#include "plain_handler.h"

namespace {

struct ThrowingHandler : PlainHandler {
  ThrowingHandler() { throw std::runtime_error("constructor on purpose"); }
};

}  // namespace

PADDOCK_PLUGIN(ThrowingHandler)
