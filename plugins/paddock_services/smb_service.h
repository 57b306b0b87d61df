// What Samba makes of a share point: the configuration that it reads, as testparm(1) prints it, and
// the smbd that runs.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "paddock_services/protocol_state.h"
#include "paddock_services/share_point_names.h"

namespace paddock {

// The configuration as testparm -s prints it.
struct SambaConfiguration {
  struct Section {
    std::string name;
    std::string path;  // empty when it has none
    bool isAvailable = true;
  };
  std::vector<Section> shares;  // without [global]
  std::string ports;            // "smb ports" of [global]; empty when it is the default

  // The section that clients get under the name; null when there is none.
  const Section* find(std::string_view name) const;
};
SambaConfiguration parseTestparm(std::string_view output);

// A snapshot of Samba. Each program is queried when its answer is first needed, and not again.
class SmbService {
 public:
  // `world` must outlive this object.
  explicit SmbService(const AskedWorld& world);

  // Of a share point whose folder is there.
  ProtocolState stateOf(const SharePointNames& sharePoint);

  // Where the name belongs to a hand-written section: the reason why a share point at `path` may
  // not have it. Absent when it is free, and when Samba cannot be queried.
  std::optional<std::string> handMadeSectionFault(const std::string& name, const std::string& path);

 private:
  struct Published {  // a section of the file that synchronize-shares writes
    std::string name;
    std::string path;
  };

  const std::optional<ProtocolState>& whyNotAsked();
  void askTestparm();
  void readPublished();
  const Published* published(std::string_view name) const;
  ProtocolState whyNoSection(const std::string& name, const std::string& path) const;
  std::optional<ProtocolState> whyNotRunning();
  // Absent when smbd gives the share to its clients, or cannot be asked for one.
  std::optional<ProtocolState> whyRefused(const std::string& name);
  ProtocolState stateOfHandMade(const std::string& path);

  const AskedWorld& world_;
  bool asked_ = false;
  std::optional<ProtocolState> whyNotAsked_;
  SambaConfiguration configuration_;
  bool hasPublished_ = false;  // the file could be read
  std::vector<Published> published_;
  bool askedServer_ = false;
  std::optional<ProtocolState> whyNotRunning_;
};

}  // namespace paddock
