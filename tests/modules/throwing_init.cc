// Its init throws, and not a std::exception.

#include "plain_handler.h"

namespace {

struct ThrowingHandler : PlainHandler {
  paddock::PluginRequestHandler* init() override { throw 7; }
};

}  // namespace

PADDOCK_PLUGIN(ThrowingHandler)
