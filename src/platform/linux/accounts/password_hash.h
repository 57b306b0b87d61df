// Password hashes as crypt(5) writes them.
#pragma once

#include <string>

namespace paddock {

// A new salted yescrypt hash. Throws std::system_error: EINVAL for a password that is empty,
// holds a NUL or is longer than crypt(3) takes (511 bytes).
std::string hashPassword(const std::string& password);

// Whether the hash, of any kind that crypt(3) knows, is that of the password. Constant-time
// comparison. False for an empty password and for an empty or unknown hash.
bool passwordMatches(const std::string& password, const std::string& hash);

// Takes as long as `passwordMatches` with a hash of `hashPassword`, for a user who does not exist.
void spendTimeOfPasswordCheck(const std::string& password);

}  // namespace paddock
