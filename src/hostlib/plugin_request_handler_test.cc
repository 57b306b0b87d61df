#include "paddock/plugin_request_handler.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "paddock/plugin.h"

namespace paddock {
namespace {

class PlainHandler : public PluginRequestHandler {
 public:
  std::vector<Operation> operations() const override { return {}; }
  Dictionary performOperation(std::string_view name, const Dictionary&) override {
    throw std::invalid_argument(std::string(name));
  }
};

struct FailingHandler : PlainHandler {
  FailingHandler() { throw std::runtime_error(std::string(2000, 'x')); }
};

struct OddlyFailingHandler : PlainHandler {
  OddlyFailingHandler() { throw 1; }
};

TEST(PluginRequestHandler, InitReturnsTheReceiver) {
  PlainHandler handler;
  EXPECT_EQ(handler.init(), &handler);
}

TEST(PluginRequestHandler, ServiceCallbacksReturnNull) {
  PlainHandler handler;
  EXPECT_TRUE(handler.startServiceWithVariant(1).isNull());
  EXPECT_TRUE(handler.stopServiceWithVariant(1).isNull());
  EXPECT_TRUE(handler.recycleServiceWithVariant(1).isNull());
  EXPECT_EQ(handler.doIdleAtCount(1), 0);
}

TEST(Plugin, CreatingGivesAHandler) {
  PaddockPluginResult result{nullptr, "left over"};
  createPlugin<PlainHandler>(&result);
  const std::unique_ptr<PluginRequestHandler> handler(result.handler);
  EXPECT_NE(handler, nullptr);
  EXPECT_STREQ(result.error, "");
}

TEST(Plugin, AConstructorThatThrowsGivesItsTextCutToFit) {
  PaddockPluginResult result{nullptr, ""};
  createPlugin<FailingHandler>(&result);
  EXPECT_EQ(result.handler, nullptr);
  EXPECT_EQ(std::string(result.error), std::string(sizeof result.error - 1, 'x'));
  createPlugin<OddlyFailingHandler>(&result);
  EXPECT_EQ(result.handler, nullptr);
  EXPECT_STREQ(result.error, "an exception that is not a std::exception");
}

}  // namespace
}  // namespace paddock
