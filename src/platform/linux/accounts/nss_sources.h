// The sources of the name service switch, each asked by itself. The switch as a whole cannot say
// what the host has of its own once it also asks for the accounts that are given to it here.
//
// "files" and "extrausers" are left out: their files are read as such.
//
// Modules are loaded and called as the manual of the C library says ("NSS Modules Interface"), and
// stay loaded. As in the switch, a source that cannot be asked has nobody; it is left alone for
// `kRest` then, so that a server that does not answer costs one wait. Answers are kept for
// `kLifetime`, but those without a source that could not be asked.
//
// One thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/principal.h"
#include "platform/clock.h"

namespace paddock {

class NssModule;

// The sources that a configuration in the format of nsswitch.conf(5) names for `database`, without
// "files" and "extrausers", each once. Actions in brackets do not count: whatever is named may have
// an account.
std::vector<std::string> nssSourcesIn(std::string_view configuration, std::string_view database);

class NssSources {
 public:
  static constexpr std::chrono::hours kLifetime{1};
  static constexpr std::chrono::minutes kRest{1};

  struct Options {
    std::string configurationPath = "/etc/nsswitch.conf";
    // Where modules are, with a slash at its end; empty: where the linker looks.
    std::string moduleFolder;
  };

  // The caller keeps the clock alive.
  NssSources(Clock& clock, Options options);
  NssSources(const NssSources&) = delete;
  NssSources& operator=(const NssSources&) = delete;
  ~NssSources();

  // Reads the configuration again. One that cannot be read names no source.
  void readConfiguration();

  std::optional<std::uint32_t> idOf(PrincipalType type, const std::string& name);
  bool has(const Principal& principal);

 private:
  struct Source;
  using Answer = std::optional<std::uint32_t>;  // an id

  template <typename Ask>
  Answer answer(PrincipalType type, const std::string& key, Ask&& ask);
  template <typename Ask>
  Answer askAll(PrincipalType type, bool& isSure, Ask&& ask);
  Source& source(const std::string& name);

  Clock& clock_;
  const Options options_;
  std::vector<std::string> names_[2];  // by PrincipalType
  std::map<std::string, Source> sources_;
  std::unordered_map<std::string, Answer> answers_;
  std::chrono::steady_clock::time_point endOfAnswers_;
};

}  // namespace paddock
