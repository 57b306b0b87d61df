// The file that smb.conf includes; docs/samba.md describes it.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "platform/text_file.h"
#include "synchronize-shares/share_selection.h"

namespace paddock::synchronizer {

// The whole text: a section for each share. `attribute` is the extended attribute that holds the
// access-control lists. Throws std::runtime_error when that is none that the file can carry.
std::string includeFileText(const std::vector<const SharePoint*>& shares,
                            const std::string& attribute);

class IncludeFile {
 public:
  // The one below `root`.
  IncludeFile(TextFiles& files, const std::string& root);

  // The file's content; empty when it is missing. All three throw std::system_error.
  std::string text() const;
  // Whether `text` is the file's content.
  bool isUpToDate(const std::string& text) const;
  // Makes it that, and makes its folder, when it is missing. On failure the file is as it was.
  void replace(const std::string& text);

 private:
  TextFiles& files_;
  std::string folder_;
  std::string path_;
};

// The running smbd.

// Makes the running smbd reload its configuration by smbcontrol(1), which is at `program`. Empty
// when it was notified, when no smbd runs, and when there is no such program; otherwise the error.
// A program that takes longer than `patience` is ended.
std::string tellSmbServer(const std::string& program,
                          std::chrono::milliseconds patience = std::chrono::seconds(10));

// The same of ending the connections that clients have with the share, so that they make new ones
// by its new section.
std::string endConnections(const std::string& program, const std::string& share,
                           std::chrono::milliseconds patience = std::chrono::seconds(10));

}  // namespace paddock::synchronizer
