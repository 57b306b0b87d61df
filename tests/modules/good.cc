// A well-behaved plug-in whose operations show what the host does.

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <map>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "paddock/host.h"
#include "paddock/plugin.h"
#include "paddock/run_program.h"
#include "paddock/sys_logger.h"

namespace {

using paddock::Array;
using paddock::Dictionary;
using paddock::Value;

std::string text(const Dictionary& request, const char* key) {
  const std::string* found = request.string(key);
  return found != nullptr ? *found : std::string();
}

class GoodHandler : public paddock::PluginRequestHandler {
 public:
  GoodHandler() = default;
  // Leaves a mark, so that a test sees that the handler was destroyed.
  ~GoodHandler() override { std::ofstream(paddock::hostPath("/destroyed")) << "yes\n"; }

  std::vector<Operation> operations() const override {
    std::vector<Operation> result;
    for (const auto& [name, entry] : table()) result.push_back({name, entry.changes});
    return result;
  }

  Dictionary performOperation(std::string_view name, const Dictionary& request) override {
    const auto found = table().find(std::string(name));
    if (found == table().end()) throw std::invalid_argument(std::string(name));
    return (this->*found->second.run)(request);
  }

  std::int64_t doIdleAtCount(std::uint64_t count) override {
    lastTick_ = count;
    if (const auto wait = idleMilliseconds_.load()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(wait));
    }
    if (idleThrows_) throw std::runtime_error("idle failure");
    return 0;
  }

 private:
  struct Entry {
    Dictionary (GoodHandler::*run)(const Dictionary&);
    bool changes;
  };
  static const std::map<std::string, Entry>& table() {
    static const std::map<std::string, Entry> operations{
        {"echo", {&GoodHandler::echo, false}},
        {"change", {&GoodHandler::echo, true}},
        {"block", {&GoodHandler::block, false}},
        {"blockChange", {&GoodHandler::block, true}},
        {"fail", {&GoodHandler::fail, true}},
        {"command", {&GoodHandler::command, false}},
        {"remember", {&GoodHandler::remember, true}},
        {"recall", {&GoodHandler::recall, false}},
        {"run", {&GoodHandler::run, false}},
        {"ticks", {&GoodHandler::ticks, false}},
        {"setIdle", {&GoodHandler::setIdle, true}},
        {"big", {&GoodHandler::big, false}},
        {"surroundings", {&GoodHandler::surroundings, false}},
        {"log", {&GoodHandler::log, false}},
    };
    return operations;
  }

  Dictionary echo(const Dictionary& request) { return request; }

  // Waits until the file "until" is there; makes the file "begun" first.
  Dictionary block(const Dictionary& request) {
    std::ofstream(text(request, "begun")) << ::getpid() << "\n";
    while (::access(text(request, "until").c_str(), F_OK) != 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return {{"blocked", true}};
  }

  Dictionary fail(const Dictionary& request) {
    const std::string how = text(request, "how");
    if (how == "number") throw std::system_error(ENOSPC, std::generic_category(), "disk");
    if (how == "odd") throw 7;
    throw std::runtime_error("on purpose");
  }

  Dictionary command(const Dictionary& request) {
    const std::string module = text(request, "module");
    const auto manager = paddock::BundleManager::managerForBundle(module);
    const Dictionary* command = request.dictionary("request");
    return {{"reply", manager.doCommand(command != nullptr ? *command : Dictionary(), module,
                                        std::nullopt)}};
  }

  Dictionary remember(const Dictionary& request) {
    for (const auto& entry : request) context().set(entry.key, entry.value);
    context().set(paddock::Context::kDirtyKey, true);
    return {};
  }

  Dictionary recall(const Dictionary&) { return context().snapshot(); }

  Dictionary run(const Dictionary& request) {
    std::vector<std::string> arguments;
    if (const Array* given = request.array("arguments")) {
      for (const Value& argument : *given) arguments.push_back(*argument.string());
    }
    const auto result = paddock::runProgram(text(request, "program"), arguments);
    return {{"status", result.status},
            {"exitStatus", result.exitStatus},
            {"output", result.output},
            {"errorOutput", result.errorOutput}};
  }

  Dictionary ticks(const Dictionary&) { return {{"last", Value::fromUnsigned(lastTick_)}}; }

  Dictionary setIdle(const Dictionary& request) {
    idleThrows_ = request.boolean("throws").value_or(false);
    idleMilliseconds_ = request.integer("milliseconds").value_or(0);
    return {};
  }

  Dictionary big(const Dictionary& request) {
    const auto bytes = static_cast<std::size_t>(request.integer("bytes").value_or(0));
    return {{"text", std::string(bytes, 'x')}};
  }

  Dictionary surroundings(const Dictionary&) {
    return {{"root", paddock::host().root()},
            {"exports", paddock::hostPath("/etc/exports")},
            {"configuration", paddock::host().configuration()},
            {"request", paddock::currentRequestId()}};
  }

  Dictionary log(const Dictionary& request) {
    paddock::logMessage(static_cast<int>(request.integer("priority").value_or(3)),
                        text(request, "text"));
    return {};
  }

  std::atomic<std::uint64_t> lastTick_{0};
  std::atomic<std::int64_t> idleMilliseconds_{0};
  std::atomic<bool> idleThrows_{false};
};

}  // namespace

PADDOCK_PLUGIN(GoodHandler)
