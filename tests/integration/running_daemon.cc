#include "integration/running_daemon.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "base/system_call.h"

namespace paddock::testing {
namespace {

constexpr auto kPatience = std::chrono::seconds(60);
constexpr auto kStep = std::chrono::milliseconds(10);
constexpr int kSignalBase = 128;

pid_t startDaemon(const std::vector<std::string>& arguments, const std::string& output,
                  const std::string& errorOutput) {
  std::vector<std::string> texts{PADDOCKD_PROGRAM};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
  const FileDescriptor out(::open(output.c_str(), kFlags, 0644));
  const FileDescriptor err(::open(errorOutput.c_str(), kFlags, 0644));
  const pid_t process = ::fork();
  if (process != 0) return process;
  ::dup2(out.get(), STDOUT_FILENO);
  ::dup2(err.get(), STDERR_FILENO);
  ::execv(pointers[0], pointers.data());
  ::_exit(127);
}

// -1 as long as it runs.
int endStatus(pid_t process) {
  int status = 0;
  if (::waitpid(process, &status, WNOHANG) != process) return -1;
  return WIFSIGNALED(status) ? kSignalBase + WTERMSIG(status) : WEXITSTATUS(status);
}

int waitForEnd(pid_t process) {
  int status = -1;
  eventually([&status, process] { return (status = endStatus(process)) != -1; });
  return status;
}

}  // namespace

bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(kStep);
  }
  return true;
}

RunningDaemon::RunningDaemon(const DaemonTree& tree, const std::vector<std::string>& arguments)
    : tree_(tree) {
  std::vector<std::string> all{"--root", tree.root()};
  all.insert(all.end(), arguments.begin(), arguments.end());
  process_ = startDaemon(all, tree.path("/stdout"), tree.path("/stderr"));
  eventually([this] {
    if (endStatus(process_) != -1) process_ = 0;
    // The socket is there before the plug-ins are loaded, so it is an answer that counts.
    return process_ == 0 || request(tree_.socket(), "GET", "/v1/health").status != 0;
  });
}

RunningDaemon::~RunningDaemon() {
  if (process_ > 0) {
    ::kill(process_, SIGKILL);
    waitForEnd(process_);
  }
  // A daemon that was built with sanitizers reports there.
  const std::string text = log();
  for (const char* report : {"Sanitizer", "runtime error:"}) {
    EXPECT_EQ(text.find(report), std::string::npos) << text;
  }
}

void RunningDaemon::signal(int number) const {
  if (process_ > 0) ::kill(process_, number);
}

int RunningDaemon::wait() {
  if (process_ <= 0) return -1;
  const int status = waitForEnd(process_);
  if (status != -1) process_ = 0;
  return status;
}

int RunningDaemon::stop() {
  signal(SIGTERM);
  return wait();
}

Response RunningDaemon::get(const std::string& target) const {
  return request(tree_.socket(), "GET", target);
}

Response RunningDaemon::post(const std::string& target, const std::string& body,
                             const std::string& headers) const {
  return request(tree_.socket(), "POST", target, body, headers);
}

EndedRun runToEnd(const DaemonTree& tree, const std::vector<std::string>& arguments) {
  const pid_t process = startDaemon(arguments, tree.path("/run.out"), tree.path("/run.err"));
  const int status = waitForEnd(process);
  if (status == -1) ::kill(process, SIGKILL);
  return {status, tree.read("/run.out"), tree.read("/run.err")};
}

}  // namespace paddock::testing
