#include "keelhouse/share/smb_settings.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/suggested_words.h"
#include "samba/smb_check.h"

namespace paddock::keelhouse {

namespace {

using samba::AttributeWrite;

constexpr const char* kPlugin = "paddock_directory";
constexpr const char* kSharePoints = "dsRecTypeStandard:SharePoints";
constexpr const char* kTestparm = "/usr/bin/testparm";

std::vector<std::string> splitList(const std::string& list) {
  constexpr std::string_view kBetween = ", \t";
  std::vector<std::string> words;
  for (std::size_t at = 0; (at = list.find_first_not_of(kBetween, at)) != std::string::npos;) {
    const std::size_t end = std::min(list.find_first_of(kBetween, at), list.size());
    words.push_back(list.substr(at, end - at));
    at = end;
  }
  return words;
}

// The parameter of the key, or the end.
auto findParameter(std::vector<samba::Parameter>& parameters, const std::string& key) {
  return std::find_if(parameters.begin(), parameters.end(), [&key](const auto& parameter) {
    return samba::parameterKey(parameter.key) == samba::parameterKey(key);
  });
}

void setParameter(samba::SmbOptions& options, const std::string& text) {
  samba::Parameter parameter = samba::parseParameter(text);
  if (const std::string fault = samba::faultOfParameter(parameter); !fault.empty()) {
    const std::string name = parameter.key.empty() ? text : parameter.key;
    std::string nearest;
    if (fault.find("smb.conf") != std::string::npos) {
      nearest = didYouMean(parameter.key, samba::allowedParameters());
    }
    throw usageFailure("--option: \"" + name + "\" " + fault + nearest);
  }
  const auto present = findParameter(options.parameters, parameter.key);
  if (present == options.parameters.end()) {
    options.parameters.push_back(std::move(parameter));
  } else {
    *present = std::move(parameter);
  }
}

void removeParameter(samba::SmbOptions& options, const std::string& key) {
  const auto present = findParameter(options.parameters, key);
  if (present == options.parameters.end()) {
    std::vector<std::string> keys;
    for (const samba::Parameter& parameter : options.parameters) keys.push_back(parameter.key);
    throw failure("--no-option: it has no option \"" + printable(key) + "\"" +
                  printable(didYouMean(key, keys)));
  }
  options.parameters.erase(present);
}

// The options of `options` that differ from those of `stored`.
samba::SmbOptions newOptions(samba::SmbOptions options, const samba::SmbOptions& stored) {
  auto& parameters = options.parameters;
  parameters.erase(std::remove_if(parameters.begin(), parameters.end(),
                                  [&stored](const samba::Parameter& parameter) {
                                    return std::find(stored.parameters.begin(),
                                                     stored.parameters.end(),
                                                     parameter) != stored.parameters.end();
                                  }),
                   parameters.end());
  return options;
}

Dictionary recordRequest(const std::string& name) {
  return {{"type", kSharePoints}, {"name", name}};
}

std::string optionsOf(const std::string& recordName) {
  return "the options over SMB of " + printable(recordName);
}

std::string notWritten(const std::string& recordName) {
  return optionsOf(recordName) + " cannot be written";
}

struct TaggedOptions {
  samba::SmbOptions options;
  std::string tag;  // of the record
};

TaggedOptions readTaggedOptions(const Session& session, const std::string& recordName) {
  // Without a condition there is always a reply.
  const TaggedReply reply =
      *session.daemon.callTagged(kPlugin, "getRecord", recordRequest(recordName));
  const std::string what = optionsOf(recordName);
  requireStatus(reply.body, "status", what + " cannot be read");
  const Dictionary* record = reply.body.dictionary("record");
  if (record == nullptr) throw failure(what + " cannot be read: there is no such record");
  const samba::ReadOptions read = samba::readOptions(*record);
  if (!read.fault.empty()) throw failure(what + " cannot be read: " + printable(read.fault));
  return {read.options, reply.tag};
}

bool holds(const Array& names, const std::string& name) {
  return std::any_of(names.begin(), names.end(), [&name](const Value& value) {
    return value.string() != nullptr && *value.string() == name;
  });
}

// What makes `from` into `to`: the attributes that differ, and no others.
AttributeWrite difference(const samba::SmbOptions& from, const samba::SmbOptions& to) {
  const AttributeWrite old = samba::attributesOf(from);
  const AttributeWrite wanted = samba::attributesOf(to);
  AttributeWrite write;
  for (const auto& entry : wanted.attributes) {
    const Value* present = old.attributes.find(entry.key);
    if (present == nullptr || *present != entry.value) write.attributes.set(entry.key, entry.value);
  }
  for (const Value& name : wanted.removals) {
    if (!holds(old.removals, *name.string())) write.removals.push_back(name);
  }
  return write;
}

// Leaves out of `write` what `others` is about.
void keepWhatOthersChanged(AttributeWrite& write, const AttributeWrite& others) {
  AttributeWrite own;
  const auto isOthers = [&others](const std::string& name) {
    return others.attributes.contains(name) || holds(others.removals, name);
  };
  for (const auto& entry : write.attributes) {
    if (!isOthers(entry.key)) own.attributes.set(entry.key, entry.value);
  }
  for (const Value& name : write.removals) {
    if (!isOthers(*name.string())) own.removals.push_back(name);
  }
  write = std::move(own);
}

// False when the record is not what `tag` names; nothing is changed then. A deleted record is not
// created again.
bool putOptions(const Session& session, const std::string& recordName, AttributeWrite write,
                const std::string& tag) {
  if (write.attributes.empty() && write.removals.empty()) return true;
  Dictionary request = recordRequest(recordName);
  if (!write.attributes.empty()) request.set("attributes", std::move(write.attributes));
  if (!write.removals.empty()) request.set("removeAttributes", std::move(write.removals));
  const auto reply = session.daemon.callTagged(kPlugin, "putRecord", request, tag);
  if (!reply) return false;
  requireStatus(reply->body, "status", notWritten(recordName));
  return true;
}

}  // namespace

bool SmbChanges::empty() const {
  return !readOnly && !guest && !hidden && !recycle && !comment && !allowHosts && options.empty() &&
         noOptions.empty();
}

samba::SmbOptions changedOptions(samba::SmbOptions stored, const SmbChanges& changes) {
  stored.readOnly = changes.readOnly.value_or(stored.readOnly);
  stored.guest = changes.guest.value_or(stored.guest);
  stored.hidden = changes.hidden.value_or(stored.hidden);
  stored.recycle = changes.recycle.value_or(stored.recycle);
  stored.comment = changes.comment.value_or(stored.comment);
  if (changes.allowHosts) stored.allowHosts = splitList(*changes.allowHosts);
  for (const std::string& key : changes.noOptions) removeParameter(stored, key);
  for (const std::string& text : changes.options) setParameter(stored, text);
  if (const std::string fault = samba::faultOfOptions(stored); !fault.empty()) {
    throw usageFailure("the share's options over SMB: " + fault);
  }
  return stored;
}

void requireTaken(const Session& session, const samba::SmbOptions& options,
                  const samba::SmbOptions& stored) {
  const samba::SmbOptions added = newOptions(options, stored);
  if (added.parameters.empty()) return;
  const std::string program = session.root + kTestparm;
  const auto fault = samba::faultSaidByTestparm(program, samba::sectionLines(added));
  if (!fault) {
    session.notes << "keelhouse: note: whether Samba takes the options cannot be told: there is no "
                  << printable(program) << '\n';
  } else if (!fault->empty()) {
    throw usageFailure("--option: Samba does not take it: " + *fault);
  }
}

samba::SmbOptions readSmbOptions(const Session& session, const std::string& recordName) {
  return readTaggedOptions(session, recordName).options;
}

ChangedOptions changeSmbOptions(const Session& session, const std::string& recordName,
                                const SmbChanges& changes,
                                const std::optional<samba::SmbOptions>& taken) {
  ChangedOptions changed;
  repeatUntilUndisturbed(notWritten(recordName), [&](int attempt) {
    const TaggedOptions read = readTaggedOptions(session, recordName);
    changed = {read.options, changedOptions(read.options, changes)};
    if (attempt == 0) requireTaken(session, changed.after, taken.value_or(changed.before));
    return putOptions(session, recordName, difference(changed.before, changed.after), read.tag);
  });
  return changed;
}

void takeBackSmbOptions(const Session& session, const std::string& recordName,
                        const ChangedOptions& changed) {
  repeatUntilUndisturbed(notWritten(recordName), [&](int /*attempt*/) {
    const TaggedOptions present = readTaggedOptions(session, recordName);
    AttributeWrite write = difference(changed.after, changed.before);
    keepWhatOthersChanged(write, difference(changed.after, present.options));
    return putOptions(session, recordName, write, present.tag);
  });
}

void addSmbOptions(const Session& session, Dictionary& sharePoint) {
  const std::string* name = sharePoint.string("name");
  if (name == nullptr || name->empty()) return;
  try {
    Dictionary options = samba::optionsDictionary(readSmbOptions(session, *name));
    if (!options.empty()) sharePoint.set("smb", std::move(options));
  } catch (const Failure& failed) {
    session.notes << "keelhouse: note: " << printableLines(failed.what()) << '\n';
  }
}

}  // namespace paddock::keelhouse
