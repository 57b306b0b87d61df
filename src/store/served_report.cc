#include "store/served_report.h"

#include <algorithm>
#include <optional>
#include <string>

#include "platform/logger.h"
#include "platform/plugin_commands.h"
#include "platform/services.h"
#include "store/exception_text.h"

namespace paddock {

namespace {

constexpr const char* kPlugin = "paddock_services";
// A request may list every share point of a server.
constexpr std::size_t kMostAsked = 100;

void log(int priority, const std::string& text) {
  services().logger->log(priority, "paddock_sharing: " + text);
}

bool isServedOverAny(const Dictionary& state) {
  const Dictionary* protocols = state.dictionary("protocols");
  if (protocols == nullptr) return false;
  return std::any_of(protocols->begin(), protocols->end(), [](const auto& protocol) {
    const Dictionary* one = protocol.value.dictionary();
    const std::string* word = one != nullptr ? one->string("state") : nullptr;
    return word != nullptr && *word == "served";
  });
}

void logOne(const Dictionary& state) {
  const std::string* path = state.string("path");
  const std::string* sentence = state.string("sentence");
  if (path == nullptr || sentence == nullptr || sentence->empty()) return;
  if (!state.boolean("isShared").value_or(true)) {
    const char* what = isServedOverAny(state) ? " is not shared, and still served: "
                                              : " is not shared; who may serve it still: ";
    log(kLogWarning, *path + what + *sentence);
    return;
  }
  const bool isServed = state.boolean("isServed").value_or(false);
  log(isServed ? kLogInformation : kLogWarning, *path + ": " + *sentence);
}

void askAndLog(const std::vector<SharePointRecord>& sharePoints) {
  Array paths;
  std::size_t others = 0;
  for (const SharePointRecord& sharePoint : sharePoints) {
    // A record without a folder shares nothing; a relative path would be that of another one.
    if (!sharePoint.identifier().starts_with('/')) continue;
    if (paths.size() < kMostAsked) {
      paths.emplace_back(sharePoint.identifier());
    } else {
      ++others;
    }
  }
  if (paths.empty()) return;
  const Dictionary reply = services().pluginCommands->doCommand(
      kPlugin, {{"command", "getServed"}, {"paths", std::move(paths)}, {"duringChange", true}},
      kPlugin, std::nullopt);
  const Array* states = reply.array("sharePoints");
  if (states == nullptr) {
    const std::string* error = reply.string("error");
    log(kLogWarning, "whether the share points are served is not known" +
                         (error != nullptr ? ": " + *error : std::string()));
    return;
  }
  for (const Value& state : *states) {
    if (state.dictionary() != nullptr) logOne(*state.dictionary());
  }
  if (others > 0) {
    log(kLogInformation, "whether the other " + std::to_string(others) +
                             " share points are served: keelhouse share list --check");
  }
}

}  // namespace

void log_what_is_served(const std::vector<SharePointRecord>& sharePoints) {
  try {
    askAndLog(sharePoints);
  } catch (...) {
    log(kLogWarning,
        "whether the share points are served is not known: " + describe_current_exception());
  }
}

}  // namespace paddock
