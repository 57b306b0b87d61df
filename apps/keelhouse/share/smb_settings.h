// The options of a share over SMB, as the command line changes them and the directory keeps them.
//
// They are attributes of the share point's record, which the sharing plug-in leaves alone; they are
// written there before the share point, whose writing has Samba's configuration made anew.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/value.h"
#include "keelhouse/core/session.h"
#include "samba/smb_options.h"

namespace paddock::keelhouse {

// What the command line asks for; what is absent was not mentioned.
struct SmbChanges {
  std::optional<bool> readOnly;
  std::optional<bool> guest;
  std::optional<bool> hidden;
  std::optional<bool> recycle;
  std::optional<std::string> comment;     // "": none of its own any more
  std::optional<std::string> allowHosts;  // blanks or commas between; "": everybody
  std::vector<std::string> options;       // "KEY = VALUE"
  std::vector<std::string> noOptions;     // keys

  bool empty() const;
};

// `stored` with the changes. Throws Failure (usage) for what a share cannot have, naming it and the
// reason.
samba::SmbOptions changedOptions(samba::SmbOptions stored, const SmbChanges& changes);

// Throws Failure unless Samba takes the options that are in `options` and were not in `stored`. A
// note says when there is no testparm in the session's tree to ask.
void requireTaken(const Session& session, const samba::SmbOptions& options,
                  const samba::SmbOptions& stored);

// Of the share point's record of that name. Throws Failure when they cannot be read.
samba::SmbOptions readSmbOptions(const Session& session, const std::string& recordName);

// Options before a change and after it.
struct ChangedOptions {
  samba::SmbOptions before;
  samba::SmbOptions after;
};

// Applies the changes to the record of that name, and only to the attributes concerned; repeated on
// the new contents when the record is changed concurrently. Throws Failure for what a share cannot
// have or Samba does not accept, and when the record no longer exists; nothing is changed then.
// `taken`: options that Samba is already known to accept.
ChangedOptions changeSmbOptions(const Session& session, const std::string& recordName,
                                const SmbChanges& changes,
                                const std::optional<samba::SmbOptions>& taken = {});

// Takes the change back; attributes that others have changed since stay as they are. Throws
// Failure.
void takeBackSmbOptions(const Session& session, const std::string& recordName,
                        const ChangedOptions& changed);

// A property "smb" of a share point that is to be shown, where it has options; a note says when
// they cannot be read.
void addSmbOptions(const Session& session, Dictionary& sharePoint);

}  // namespace paddock::keelhouse
