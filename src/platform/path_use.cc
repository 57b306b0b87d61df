#include "platform/path_use.h"

#include <cerrno>

#include "base/status.h"
#include "platform/file_attributes.h"

namespace paddock {

namespace {

// As a shell takes it for one word.
std::string quoted(const std::string& path) {
  std::string text = "'";
  for (const char character : path) {
    if (character == '\'') {
      text += "'\\''";
    } else {
      text += character;
    }
  }
  return text + "'";
}

}  // namespace

std::string textOf(const RefusedLink& link) {
  if (link.leadsToObject) {
    return link.path + " is a link of /proc that stands for " + link.target +
           " and names no path. Name the folder itself";
  }
  const std::string owner = link.ownerName ? *link.ownerName : "uid " + std::to_string(link.owner);
  return link.path + " is a symbolic link of " + owner +
         ", who does not own what it leads to (it says " + link.target +
         "), so nothing is changed through it. Name the folder itself; if the link is right, make "
         "it root's: chown -h root " +
         quoted(link.path);
}

std::string reasonOfRefusal(FileAttributeService& attributes, const std::string& path, int error) {
  const auto link = error == EACCES ? attributes.refusedLink(path) : std::nullopt;
  return link ? textOf(*link) : sharing_error_string(error);
}

}  // namespace paddock
