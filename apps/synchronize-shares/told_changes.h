// Which changes of the shares smbd has been told of, kept in the file that a run holds its lock on,
// so that what one run could not tell the next one does.
//
// The file holds two decimal numbers: the changes so far, and the last one that smbd was told of.
// Nothing that can be read counts as a change that nobody was told of, an empty file as none.
#pragma once

#include <cstdint>

namespace paddock::synchronizer {

class ToldChanges {
 public:
  // `lockFile` is open for reading and writing, and locked during each call. Not owned.
  explicit ToldChanges(int lockFile);

  // The last change when smbd has not been told of it, otherwise 0.
  std::uint64_t untold() const;
  // Notes one more change, not told yet. All three throw std::system_error.
  void add();
  // smbd was told after this change.
  void told(std::uint64_t change);

 private:
  struct Counts {
    std::uint64_t changes = 0;
    std::uint64_t told = 0;
  };
  Counts read() const;
  void write(Counts counts);

  int file_;
};

}  // namespace paddock::synchronizer
