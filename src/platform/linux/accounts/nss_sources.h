// The sources of the name service switch, queried individually. The switch as a whole cannot
// distinguish the host's own accounts once it also returns those exported to it here.
//
// "files" and "extrausers" are left out: their files are read as such.
//
// Modules are loaded and called as the manual of the C library says ("NSS Modules Interface"), and
// stay loaded. As in the switch, an unavailable source has no accounts; it is then not queried for
// `kRest`, so that a server that does not answer costs one wait. Answers are cached for
// `kLifetime`, except those given while a source was unavailable.
//
// Not thread-safe.
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
#include "base/timed_cache.h"
#include "platform/machine_information.h"

namespace paddock {

class NssModule;

// The sources that a configuration in the format of nsswitch.conf(5) names for `database`, without
// "files" and "extrausers", each once. Actions in brackets are ignored: any source named may have
// an account.
std::vector<std::string> nssSourcesIn(std::string_view configuration, std::string_view database);

class NssSources {
 public:
  static constexpr std::chrono::hours kLifetime{1};
  static constexpr std::chrono::minutes kRest{1};

  struct Options {
    std::string configurationPath = "/etc/nsswitch.conf";
    // Folder of the modules, with a trailing slash; empty: the linker's search path.
    std::string moduleFolder;
  };

  // The clock must outlive this object.
  NssSources(Clock& clock, Options options);
  NssSources(const NssSources&) = delete;
  NssSources& operator=(const NssSources&) = delete;
  ~NssSources();

  // Reloads the configuration. An unreadable one names no source.
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
  TimedCache<std::string, Answer, std::unordered_map> answers_;
};

// One module of the name service switch, called as the C library calls it.
class NssModule {
 public:
  // unavailable: the source cannot be queried now.
  enum class Result { found, notFound, unavailable };

  // Loads libnss_NAME.so.2, from `folder` (with a trailing slash) when it is not empty. A module
  // that is missing, or lacks a function, finds nothing.
  NssModule(const std::string& folder, const std::string& name);

  // The id of the user or group of the name.
  Result find(PrincipalType type, const std::string& name, std::uint32_t& id) const;
  Result find(const Principal& principal) const;

 private:
  void* function(const std::string& name) const;

  std::string name_;
  void* handle_;
};

}  // namespace paddock
