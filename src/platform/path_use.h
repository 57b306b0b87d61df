// The purpose of resolving a path, and the symlinks that prevent changes through it.
//
// A path that is read may lead through anybody's links. Before anything is changed through one, a
// link in it counts only when root (or the user of this process) owns it, or when its owner owns
// what it points to: its owner could change that anyway. What it points to is judged at the end of
// all links, and again for each link on the way. Links of /proc that lead to an object instead of
// naming a path (/proc/PID/root, /proc/self/fd/N) never count. What does not count is EACCES.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace paddock {

class FileAttributeService;

enum class PathUse { reading, changing };

struct RefusedLink {
  std::string path;    // the link, as the walk came to it
  std::string target;  // its text; chosen by its creator
  uid_t owner = 0;
  std::optional<std::string> ownerName;  // absent when it is not known
  bool leadsToObject = false;            // one of /proc
  friend bool operator==(const RefusedLink&, const RefusedLink&) = default;
};

// One sentence or two for people, without a point at the end: which link, whose, and what to do.
std::string textOf(const RefusedLink& link);

// Why a change at `path` failed with that errno, for people: the link that is in its way where
// there is one, else the errno's text.
std::string reasonOfRefusal(FileAttributeService& attributes, const std::string& path, int error);

}  // namespace paddock
