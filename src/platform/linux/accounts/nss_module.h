// One module of the name service switch, called as the C library calls it.
#pragma once

#include <string>

#include "base/principal.h"

namespace paddock {

class NssModule {
 public:
  // unavailable: who would know cannot be asked now.
  enum class Result { found, notFound, unavailable };

  // Loads libnss_NAME.so.2, from `folder` (with a slash at its end) when it is not empty. A module
  // that is not there, or lacks a function, finds nothing.
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
