// A folder's list through the sharing module, whose lock every read and write takes.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "base/value.h"
#include "paddock_denials/group_denials.h"
#include "platform/membership.h"
#include "platform/plugin_commands.h"

namespace paddock {

// The failure of an operation; `status` is an errno or a status of the module.
class DenialFailure : public std::runtime_error {
 public:
  DenialFailure(int status, const std::string& message)
      : std::runtime_error(message), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

// The entries as the module carries them. Throws DenialFailure.
Array readList(PluginCommands& siblings, const std::string& path);

// Replaces the list. Throws DenialFailure.
void writeList(PluginCommands& siblings, const std::string& path, const Array& acl);

// Decodes the entries. An entry whose principal the membership service cannot look up decides
// nothing.
std::vector<acl::Rule> listedEntries(Membership& membership, const Array& acl);

// An entry to be sent that denies the user what the entry denies, with the same inheritance.
Dictionary denialLike(const Dictionary& entry, std::uint32_t uid);
// The entry as it is sent back. Throws DenialFailure for one of another kind.
Dictionary sentBack(const Dictionary& entry);

}  // namespace paddock
