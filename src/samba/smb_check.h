// Validation of a share's parameters by Samba itself, with testparm(1).
#pragma once

#include <optional>
#include <string>

namespace paddock::samba {

// Of the lines of one section, as `sectionLines` makes them. "" when testparm, which is at
// `program`, takes each as it stands; otherwise what it says of the first that it does not, or why
// it could not be asked. Absent when there is no such program. A program that takes longer than ten
// seconds is ended.
std::optional<std::string> faultSaidByTestparm(const std::string& program,
                                               const std::string& lines);

}  // namespace paddock::samba
