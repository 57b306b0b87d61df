// The plug-in paddock_access: the access reports of the programs of the sharing plug-in's bundle,
// for users other than root.
//
// Operations. Each runs one program as the daemon's user and returns its output unchanged.
//
//   effective           {"path", "uid"}   effectiveprivs: what the user may do
//   answer              {"path", "uid"}   effectiveprivs --answer: and what each door lets through
//   explain             {"path", "uid"}   effectiveprivs --explain: and why
//   who                 {"path"}          effectiveprivs --who: who may do something there
//   previewPropagation  {"path", "mask"}  copyprivs -n: what a run would change
//
// The first four take "json" (a boolean), for the program's --json (`explain` and `who` have it).
// The reply of a program that ran: "status", its exit status; "output" and "errors", what it wrote
// to its two streams; previewPropagation has "report", its status file, a property list, when it
// wrote one. A request that cannot be used and a program that cannot be run or took too long are
// {"error": text}.
//
// The first four only read, so viewers may ask them; what a run would change is for administrators.
// Nothing here waits for the sharing plug-in's lock. At most four programs run at a time, so that
// callers cannot exhaust the machine; a request that finds no free slot in time gets an error.
#pragma once

#include <chrono>
#include <memory>
#include <semaphore>
#include <string>
#include <string_view>
#include <vector>

#include "paddock/plugin_request_handler.h"
#include "platform/program_runner.h"

namespace paddock {

class AccessRequestHandler final : public PluginRequestHandler {
 public:
  static constexpr int kPrograms = 4;

  // With the host's program runner.
  AccessRequestHandler();
  // With another runner, never null; `patience` is how long a request waits for a free slot.
  explicit AccessRequestHandler(
      std::unique_ptr<ProgramRunner> runner,
      std::chrono::milliseconds patience = std::chrono::milliseconds(30000));

  std::vector<Operation> operations() const override;
  Dictionary performOperation(std::string_view name, const Dictionary& request) override;

 private:
  Dictionary judge(const char* option, bool ofUser, const Dictionary& request);
  Dictionary preview(const Dictionary& request);
  Dictionary run(const char* program, const std::vector<std::string>& arguments);

  std::unique_ptr<ProgramRunner> runner_;
  const std::chrono::milliseconds patience_;
  std::counting_semaphore<kPrograms> places_{kPrograms};
};

}  // namespace paddock
