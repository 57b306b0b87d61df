// The host of a plug-in under test: below a folder of its own, with a configuration, without other
// plug-ins.
#pragma once

#include <mutex>
#include <string>
#include <utility>

#include "paddock/host.h"
#include "paddock/sys_logger.h"
#include "support/temporary_folder.h"

namespace paddock {

class PluginHost final : public Host {
 public:
  explicit PluginHost(Dictionary configuration = {}) : configuration_(std::move(configuration)) {
    installHost(this);
    installLogSink([this](int, const std::string& line) {
      const std::scoped_lock lock(mutex_);
      log_ += line + "\n";
    });
  }
  PluginHost(const PluginHost&) = delete;
  PluginHost& operator=(const PluginHost&) = delete;
  ~PluginHost() override {
    installLogSink(standardErrorSink());
    installHost(nullptr);
  }

  const std::string& root() const override { return folder_.path(); }
  const Dictionary& configuration() const override { return configuration_; }
  Dictionary deliverCommand(const std::string&, const Dictionary&) override { return {}; }

  // Between two calls of the plug-in.
  void configure(Dictionary configuration) { configuration_ = std::move(configuration); }
  std::string path(const std::string& below) const { return root() + below; }
  std::string log() const {
    const std::scoped_lock lock(mutex_);
    return log_;
  }

 private:
  TestFolder folder_;
  Dictionary configuration_;
  mutable std::mutex mutex_;
  std::string log_;
};

}  // namespace paddock
