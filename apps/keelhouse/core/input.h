// What a command reads besides its words.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "base/value.h"

namespace paddock::keelhouse {

// Everything up to the end of the file; throws Failure beyond `maximum` bytes and for a descriptor
// that cannot be read.
std::string readAll(int descriptor, std::size_t maximum);

// A password. From `descriptor` when it is not -1: its first line. Else, when standard input is a
// terminal, from a prompt without echo, typed twice when `confirm`. Else the first line of standard
// input. The line feed is not part of it. Throws Failure (usage) for one that is empty, longer than
// 1,024 bytes or not UTF-8, and for two that differ.
std::string readPassword(int descriptor, const std::string& prompt, bool confirm);

// Who asks a directory node.

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
