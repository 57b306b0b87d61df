#include "paddock_access/access_handler.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "base/file_access.h"
#include "base/status.h"
#include "base/system_call.h"
#include "paddock/host.h"
#include "platform/host/host_services.h"

namespace paddock {

namespace {

constexpr const char* kJudge =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs";
constexpr const char* kPush =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/copyprivs";
constexpr const char* kStateFolder = "/var/lib/paddock";
constexpr mode_t kStateMode = 0700;
constexpr std::size_t kLongestReport = 1U << 20U;

// What a request has to say so that a program can be asked.
class UnusableRequest : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

std::string pathOf(const Dictionary& request) {
  const std::string* path = request.string("path");
  const bool isAbsolute = path != nullptr && !path->empty() && path->front() == '/';
  if (!isAbsolute || path->find('\0') != std::string::npos)
    throw UnusableRequest("\"path\" must be an absolute path");
  return *path;
}

std::string numberOf(const Dictionary& request, const char* key) {
  const auto number = request.integer(key);
  if (!number || *number < 0 || *number > std::numeric_limits<std::uint32_t>::max()) {
    throw UnusableRequest("\"" + std::string(key) + "\" must be an integer from 0 to 4294967295");
  }
  return std::to_string(*number);
}

// A folder of the daemon's own for the files of one run.
class RunFolder {
 public:
  RunFolder() {
    (void)openOwnFolder(hostPath(kStateFolder), kStateMode);
    path_ = hostPath(kStateFolder) + "/preview.XXXXXX";
    if (::mkdtemp(path_.data()) == nullptr) throw systemError(errno, "mkdtemp", path_);
  }
  RunFolder(const RunFolder&) = delete;
  RunFolder& operator=(const RunFolder&) = delete;
  ~RunFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string path(const char* name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Gives the place back at its end.
class TakenPlace {
 public:
  explicit TakenPlace(std::counting_semaphore<AccessRequestHandler::kPrograms>& places)
      : places_(places) {}
  TakenPlace(const TakenPlace&) = delete;
  TakenPlace& operator=(const TakenPlace&) = delete;
  ~TakenPlace() { places_.release(); }

 private:
  std::counting_semaphore<AccessRequestHandler::kPrograms>& places_;
};

Dictionary failureOf(const char* program, int status) {
  const std::string name = std::filesystem::path(program).filename();
  if (status == ETIMEDOUT) {
    return {{"error", name + " took too long and was ended ([limits] program_seconds)"}};
  }
  return {{"error", name + " cannot be run: " + sharing_error_string(status)}};
}

}  // namespace

AccessRequestHandler::AccessRequestHandler()
    : AccessRequestHandler(std::make_unique<HostProgramRunner>()) {}

AccessRequestHandler::AccessRequestHandler(std::unique_ptr<ProgramRunner> runner,
                                           std::chrono::milliseconds patience)
    : runner_(std::move(runner)), patience_(patience) {}

std::vector<PluginRequestHandler::Operation> AccessRequestHandler::operations() const {
  return {{"effective", false},
          {"answer", false},
          {"explain", false},
          {"who", false},
          {"previewPropagation", true}};
}

Dictionary AccessRequestHandler::performOperation(std::string_view name,
                                                  const Dictionary& request) {
  try {
    if (name == "effective") return judge(nullptr, true, request);
    if (name == "answer") return judge("--answer", true, request);
    if (name == "explain") return judge("--explain", true, request);
    if (name == "who") return judge("--who", false, request);
    if (name == "previewPropagation") return preview(request);
  } catch (const UnusableRequest& unusable) {
    return {{"error", unusable.what()}};
  } catch (const std::system_error& error) {
    return {{"error", error.what()}};
  }
  throw std::invalid_argument("no operation " + std::string(name));
}

Dictionary AccessRequestHandler::judge(const char* option, bool ofUser, const Dictionary& request) {
  std::vector<std::string> arguments;
  if (request.boolean("json").value_or(false)) arguments.emplace_back("--json");
  if (option != nullptr) arguments.emplace_back(option);
  arguments.insert(arguments.end(), {"-p", pathOf(request)});
  if (ofUser) arguments.insert(arguments.end(), {"-u", numberOf(request, "uid")});
  return run(kJudge, arguments);
}

Dictionary AccessRequestHandler::preview(const Dictionary& request) {
  const std::string path = pathOf(request);
  const std::string mask = numberOf(request, "mask");
  const RunFolder folder;
  const std::string statusFile = folder.path("status");
  Dictionary reply = run(kPush, {"-n", "-p", path, "-f", mask, "-s", statusFile});
  if (const auto report = readSmallFile(statusFile, kLongestReport); report && !report->empty()) {
    reply.set("report", *report);
  }
  return reply;
}

Dictionary AccessRequestHandler::run(const char* program,
                                     const std::vector<std::string>& arguments) {
  if (!places_.try_acquire_for(patience_)) {
    return {{"error", "too many such questions are being answered at the moment; ask again"}};
  }
  const TakenPlace taken(places_);
  const ProgramOutcome outcome = runner_->run(program, arguments);
  if (outcome.status != 0) return failureOf(program, outcome.status);
  return {
      {"status", outcome.exitStatus}, {"output", outcome.output}, {"errors", outcome.errorOutput}};
}

}  // namespace paddock
