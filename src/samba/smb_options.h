// The options over SMB that a share point has beside its name, in their three forms: attributes of
// its directory record, which docs/formats/share-point.md describes, the dictionary that programs
// get, and lines of smb.conf(5).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"
#include "samba/smb_parameters.h"

namespace paddock::samba {

struct SmbOptions {
  bool readOnly = false;
  bool guest = false;
  bool hidden = false;
  bool recycle = false;
  std::string comment;                  // empty: none of its own
  std::vector<std::string> allowHosts;  // who may connect; empty: everybody
  std::vector<Parameter> parameters;    // others of smb.conf, no key twice

  bool operator==(const SmbOptions& other) const;
};

// What is wrong with the options, as a sentence; empty when Samba can be given them. A share whose
// options are not right must not be served as if it had none.
std::string faultOfOptions(const SmbOptions& options);

// Of one member of `allowHosts`: an address, a network, the beginning of an address with a dot at
// its end, a host's name, ".domain", "@netgroup", ALL, LOCAL or EXCEPT.
bool isHostPattern(std::string_view text);

struct ReadOptions {
  SmbOptions options;
  std::string fault;  // of an attribute that cannot be read as an option, as a sentence
};
// From the attributes of a record, attribute -> array of values. Others do not count.
ReadOptions readOptions(const Dictionary& attributes);

// What has to be done to a record's attributes so that it has these options.
struct AttributeWrite {
  Dictionary attributes;  // to be set
  Array removals;         // names of those that are to go
};
AttributeWrite attributesOf(const SmbOptions& options);

// "readOnly", "guest", "hidden", "recycle": booleans; "comment": a string; "allowHosts": an array;
// "options": an array of "key = value". Only what is on is there.
Dictionary optionsDictionary(const SmbOptions& options);
// The inverse, `fault` saying what in it is none.
ReadOptions optionsFromDictionary(const Dictionary& dictionary);

// The lines of a share's section that stand last in it, so that they count; "" without options.
std::string sectionLines(const SmbOptions& options);

}  // namespace paddock::samba
