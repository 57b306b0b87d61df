// What NFS clients may do with a path: exports(5).
//
// Asked is the server's own table, etab, which is what "exportfs -v" prints; where there is none,
// the file of exports says what would be. Whom nfsd takes a user for is the client's word, and what
// squashing makes of it; then the kernel's permissions count, from the exported folder on.
#pragma once

#include <string>
#include <vector>

#include "effectiveprivs/path_facts.h"

namespace paddock::effectiveprivs {

struct NfsExport {
  std::string path;
  std::string client;
  std::vector<std::string> options;  // of the security flavour "sys", or of the first there is
};

// Lines of etab. What is not understood is left out.
std::vector<NfsExport> parseExportTable(const std::string& text);

struct NfsClientRights {
  std::string client;
  std::string path;
  std::string options;  // those that matter here: "ro,root_squash"
  DoorRights rights;
};

class NfsDoor {
 public:
  // The files are taken below `root`; the kernel's server is the system's, and is asked of the
  // system alone.
  NfsDoor(const std::string& root, const PathFacts& facts);

  // `clients`: what holds for each of those who are let in, in the order of the table.
  DoorRights rightsOf(const KernelPerson& person, std::vector<NfsClientRights>& clients) const;

 private:
  DoorRights rightsOver(const NfsExport& entry, const KernelPerson& person) const;
  void readFile(const std::string& path);

  const PathFacts& facts_;
  std::vector<NfsExport> exports_;  // those that lead to the path
  std::string fault_;               // why no client is served, whatever the exports say
};

}  // namespace paddock::effectiveprivs
