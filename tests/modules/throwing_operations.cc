// Cannot say which operations it has.

#include "plain_handler.h"

namespace {

struct ThrowingHandler : PlainHandler {
  std::vector<Operation> operations() const override {
    throw std::runtime_error("operations on purpose");
  }
};

}  // namespace

PADDOCK_PLUGIN(ThrowingHandler)
