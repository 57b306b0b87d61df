// Lists that SMB clients have set, kept in force when a share is served in another way.
//
// Samba passes over lists that it kept while it ignored the kernel's ACLs once it heeds them
// (samba/samba_attributes.h). Written anew in version 1, the same list is in force in either case.
// The kernel's own ACLs stay as they are, so that no user gains access.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "base/file_access.h"

namespace paddock::synchronizer {

// How a share was served until now. `unpublished`: not at all.
enum class Served { unpublished, byModes, byLists };

// How the share of that name and path was served, by the text that was written for Samba before.
Served servedBefore(const std::string& text, const std::string& name, const std::string& path);

class ListKeeper {
 public:
  // `attribute` holds the lists. The largest number of files and folders visited, and the longest
  // time taken.
  struct Limits {
    std::size_t objects = 1'000'000;
    std::chrono::milliseconds time = std::chrono::seconds(5);
  };
  static Limits noLimits();
  ListKeeper(std::string attribute, const Limits& limits);

  // Puts every list in the folder at `path`, and everywhere below it, in force that is not, links
  // not followed. A list that the kernel's ACLs have overridden was in force where the share was
  // served by modes, else it is left alone. Empty when all are in force; otherwise why not, with
  // the paths of the first few. What was written stays.
  std::string keepBelow(const std::string& path, Served before);

 private:
  struct Level;
  void walk(FileDescriptor folder, const std::string& path);
  void readLevel(Level& level);
  bool isUp();
  void keep(int object, const std::string& path);
  int rewrite(int object, const std::string& value) const;
  void note(const std::string& path, int error);
  std::string faults() const;

  const std::string attribute_;
  const std::chrono::steady_clock::time_point end_;
  std::size_t left_;
  bool withOverridden_ = false;
  bool isOver_ = false;
  std::size_t failed_ = 0;
  std::vector<std::string> failures_;
};

}  // namespace paddock::synchronizer
