// A handler with one operation, for plug-ins that are broken elsewhere.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "paddock/plugin.h"

class PlainHandler : public paddock::PluginRequestHandler {
 public:
  std::vector<Operation> operations() const override { return {{"getState", false}}; }
  paddock::Dictionary performOperation(std::string_view, const paddock::Dictionary&) override {
    return {};
  }
};
