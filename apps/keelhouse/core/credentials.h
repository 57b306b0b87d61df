// Who asks a directory node.
#pragma once

#include <optional>
#include <string>

#include "base/value.h"

namespace paddock::keelhouse {

// An account as the command line names it.
struct NodeAccount {
  std::string name;             // empty: none
  int passwordDescriptor = -1;  // to read its password from; -1: asked for
};

struct Credentials {
  std::string user;
  std::string password;
};

// The account with its password, as readPassword gives it; absent without an account.
std::optional<Credentials> readCredentials(const NodeAccount& account);

// "adminUserName" and "adminPassword" of a request; nothing without credentials.
void setCredentials(Dictionary& request, const std::optional<Credentials>& credentials);

}  // namespace paddock::keelhouse
