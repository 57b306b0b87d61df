// What a Samba configuration file can carry: smb.conf(5), and what Samba 4.17 was found to do with
// the rest. A fault is the end of a sentence that begins with what has it; empty when there is
// none.
#pragma once

#include <string>
#include <string_view>

namespace paddock::samba {

// Of the value of a parameter: what keeps Samba from reading back exactly this text, and from
// taking it as it stands. Samba drops or joins blanks, quotation marks and lines, puts something
// else for "%U" and the like, and knows no way to write them otherwise ("%%" stays "%%").
std::string_view faultOfValue(std::string_view text);

// Of the name of a section that is to be a share of this name.
std::string_view faultOfShareName(std::string_view name);

// Whether Samba has a meaning of its own for a section of this name.
bool isReservedShareName(std::string_view name);

// Comparison key of share names: each character in lower case by itself, as Samba compares them.
// Names with different keys are different ones to Samba, too. So are a few with the same key, whose
// letters have another case in a newer Unicode than Samba's. `name` is UTF-8.
std::string shareNameKey(std::string_view name);

}  // namespace paddock::samba
