// The parameters of smb.conf(5) that a share point may have of its own.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace paddock::samba {

struct Parameter {
  std::string key;
  std::string value;

  bool operator==(const Parameter& other) const { return key == other.key && value == other.value; }
};

// "KEY = VALUE", blanks around both dropped; the key as smb.conf(5) writes it where it is known.
// Without "=" the key is empty.
Parameter parseParameter(std::string_view text);
std::string parameterText(const Parameter& parameter);

// Why a share point may not have the parameter, or not with this value, as the end of a sentence
// that begins with its name; empty when it may. Only parameters are let in that are known to touch
// nothing but how this one share is served: what runs programs, leads out of the folder, acts as
// another user, or grants access beside the folder's list, is refused by name, and so is what is
// not known. Whether the value is one, Samba says (smb_check.h).
std::string faultOfParameter(const Parameter& parameter);

// Comparison key of parameter names: Samba has synonyms, and ignores blanks and letter case.
std::string parameterKey(std::string_view key);

// The keys that are let in, and those that are refused by name.
std::vector<std::string> allowedParameters();
std::vector<std::string> refusedParameters();

}  // namespace paddock::samba
