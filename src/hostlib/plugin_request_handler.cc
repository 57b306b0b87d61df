#include "paddock/plugin_request_handler.h"

namespace paddock {

PluginRequestHandler::~PluginRequestHandler() = default;

PluginRequestHandler* PluginRequestHandler::init() { return this; }

std::int64_t PluginRequestHandler::doIdleAtCount(std::uint64_t /*count*/) { return 0; }

Value PluginRequestHandler::startServiceWithVariant(const Value& /*variant*/) { return {}; }
Value PluginRequestHandler::stopServiceWithVariant(const Value& /*variant*/) { return {}; }
Value PluginRequestHandler::recycleServiceWithVariant(const Value& /*variant*/) { return {}; }

}  // namespace paddock
