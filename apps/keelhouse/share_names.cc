#include "keelhouse/share_names.h"

#include "base/printable.h"
#include "base/text.h"
#include "keelhouse/failure.h"

namespace paddock::keelhouse {

namespace {

void checkName(const std::optional<std::string>& name, const std::string& option) {
  if (!name) return;
  if (name->empty()) throw usageFailure(option + " cannot be empty");
  if (!isValidUtf8(*name)) throw usageFailure(option + " is not UTF-8");
  if (printable(*name) != *name) {
    throw usageFailure(option + " holds a control character: " + printable(*name));
  }
}

void checkLength(const std::optional<std::string>& name, const std::string& option,
                 std::size_t maximum) {
  if (!name || utf8Length(*name) <= maximum) return;
  throw usageFailure(option + " can have " + std::to_string(maximum) + " characters, and has " +
                     std::to_string(utf8Length(*name)));
}

}  // namespace

void checkShareNames(const ShareChanges& changes) {
  checkName(changes.name, "--name");
  checkName(changes.vspName, "--vsp-name");
  checkName(changes.smbName, "--smb-name");
  checkName(changes.ftpName, "--ftp-name");
  checkLength(changes.vspName, "--vsp-name", kMaximumVspNameLength);
}

bool isNumberedName(const std::string& wanted, const std::string& name) {
  const std::size_t dash = name.rfind('-');
  if (dash == std::string::npos || !wanted.starts_with(name.substr(0, dash))) return false;
  const std::string number = name.substr(dash + 1);
  return !number.empty() && number.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace paddock::keelhouse
