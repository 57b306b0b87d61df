#include "keelhouse/core/named_share.h"

#include <sys/stat.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/folder_settings.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/share_path.h"
#include "keelhouse/core/suggested_words.h"
#include "protocol/keys.h"
#include "samba/samba_text.h"

namespace paddock::keelhouse {

namespace {

using Paths = std::vector<std::string>;

// The folders of the share points whose name under `key` is `word`, each once.
template <typename Same>
Paths pathsWith(const Array& sharePoints, const char* key, Same isSame) {
  Paths paths;
  for (const Value& value : sharePoints) {
    const Dictionary* sharePoint = value.dictionary();
    if (sharePoint == nullptr) continue;
    const std::string name = textOf(*sharePoint, key);
    const std::string path = textOf(*sharePoint, "path");
    if (name.empty() || path.empty() || !isSame(name)) continue;
    if (std::find(paths.begin(), paths.end(), path) == paths.end()) paths.push_back(path);
  }
  return paths;
}

std::string quoted(const std::string& word) { return '"' + printable(word) + '"'; }

std::string onePerLine(const Paths& paths) {
  std::string lines;
  for (const std::string& path : paths) lines += "\n  " + printable(path);
  return lines;
}

Failure ambiguous(const std::string& word, const Paths& paths) {
  return failure(quoted(word) + " is the name of " + std::to_string(paths.size()) +
                 " shares; say which by its path:" + onePerLine(paths));
}

// Of the word, in the order in which they count: the records of exactly that name, those of that
// name in another letter case, the shares of that name over SMB.
std::vector<Paths> foldersNamed(const Array& sharePoints, const std::string& word) {
  const std::string key = samba::shareNameKey(word);
  const auto isKey = [&key](const std::string& name) { return samba::shareNameKey(name) == key; };
  return {pathsWith(sharePoints, "name", [&word](const std::string& name) { return name == word; }),
          pathsWith(sharePoints, "name", isKey),
          pathsWith(sharePoints, protocol::kNameOverSMB, isKey)};
}

std::vector<std::string> namesOf(const Array& sharePoints) {
  std::vector<std::string> names;
  for (const char* key : {"name", protocol::kNameOverSMB}) {
    for (const Value& value : sharePoints) {
      if (value.dictionary() != nullptr) names.push_back(textOf(*value.dictionary(), key));
    }
  }
  return names;
}

Failure nothingNamed(const Array& sharePoints, const std::string& word) {
  return failure("there is no share " + quoted(word) + ", and no such file or folder here" +
                 printable(didYouMean(word, namesOf(sharePoints))) +
                 "\nSee the shares: keelhouse share list");
}

// About a share that has the name over SMB while another one's record has it.
std::string noteOnOthers(const std::string& word, const std::string& taken, const Paths& overSmb) {
  const auto other = std::find_if(overSmb.begin(), overSmb.end(),
                                  [&taken](const std::string& path) { return path != taken; });
  if (other == overSmb.end()) return {};
  return quoted(word) + " is taken as the share " + printable(taken) +
         ", whose record has the name; " + printable(*other) + " has it over SMB";
}

bool isThere(const std::string& path) {
  struct stat attributes {};
  return ::lstat(path.c_str(), &attributes) == 0;
}

bool isPath(const std::string& word) {
  return word.empty() || word == "." || word == ".." || word.find('/') != std::string::npos ||
         !isValidUtf8(word);
}

Array readSharePoints(const Session& session) {
  const Dictionary reply = session.daemon.call("paddock_sharing", "getSharePointList", {});
  requireStatus(reply, protocol::kReadStatus, "the names of the shares cannot be read");
  const Array* list = reply.array(protocol::kSharePointList);
  return list != nullptr ? *list : Array{};
}

// For a word that is a path whatever the shares are called; empty when they cannot be read.
Array sharePointsIfTold(const Session& session) {
  try {
    return readSharePoints(session);
  } catch (const Failure&) {
    return {};
  }
}

}  // namespace

NamedFolder findNamedShare(const Array& sharePoints, const std::string& word,
                           const std::string& pathHere, bool isThere) {
  const std::vector<Paths> folders = foldersNamed(sharePoints, word);
  const auto found = std::find_if(folders.begin(), folders.end(),
                                  [](const Paths& paths) { return !paths.empty(); });
  if (isThere) {
    if (found == folders.end() || found->front() == pathHere) return {};
    return {{},
            quoted(word) + " is taken as " + printable(pathHere) +
                ", which is there; the share of that name is " + printable(found->front())};
  }
  if (found == folders.end()) throw nothingNamed(sharePoints, word);
  if (found->size() > 1) throw ambiguous(word, *found);
  return {found->front(), noteOnOthers(word, found->front(), folders.back())};
}

std::string folderPath(const Session& session, const std::string& typed) {
  std::string path = absolutePath(typed);
  if (isPath(typed)) return path;
  const bool here = isThere(path);
  const Array sharePoints = here ? sharePointsIfTold(session) : readSharePoints(session);
  NamedFolder named = findNamedShare(sharePoints, typed, path, here);
  if (!named.note.empty()) session.notes << "keelhouse: note: " << named.note << '\n';
  return named.path.empty() ? path : named.path;
}

Failure notSharedHere(const Session& session, const std::string& path, const std::string& advice) {
  std::vector<std::string> paths;
  try {
    const Dictionary reply = session.daemon.call("paddock_sharing", "getSharePointList", {});
    const Array* list = reply.array(protocol::kSharePointList);
    for (const Value& value : list != nullptr ? *list : Array{}) {
      if (value.dictionary() != nullptr) paths.push_back(textOf(*value.dictionary(), "path"));
    }
  } catch (const Failure&) {
    return notShared(path, advice);
  }
  const auto near = nearestWord(path, paths);
  return notShared(path, (near ? "Did you mean " + printable(*near) + "?\n" : "") + advice);
}

}  // namespace paddock::keelhouse
