#include "keelhouse/access/projection_view.h"

#include <algorithm>

#include "keelhouse/access/ace.h"
#include "keelhouse/access/acl_projection.h"
#include "keelhouse/access/acl_view.h"
#include "keelhouse/access/acl_words.h"
#include "keelhouse/access/folder_privileges.h"
#include "keelhouse/core/host_accounts.h"
#include "keelhouse/core/terminal_text.h"

namespace paddock::keelhouse {

namespace {

std::optional<std::uint32_t> ownerOf(const Dictionary& privileges) {
  const std::string* name = privileges.string("owner");
  return name != nullptr && !name->empty() ? hostId(PrincipalType::user, *name) : std::nullopt;
}

std::vector<ProjectedEntry> identified(const Array& acl, Principals& principals) {
  std::vector<ProjectedEntry> entries;
  entries.reserve(acl.size());
  for (const Value& value : acl) {
    Ace ace = readAce(value);
    const auto who = ace.guid ? principals.identify(*ace.guid).id : std::nullopt;
    entries.push_back({std::move(ace), who});
  }
  return entries;
}

std::optional<unsigned> bitsIn(const std::optional<KernelAcl>& acl,
                               const std::optional<Principal>& who) {
  return acl && who ? acl->bitsOf(*who) : std::nullopt;
}

bool appliesHere(const Ace& ace) { return (ace.inheritance & inheritance::kOnly) == 0; }
bool appliesInside(const Ace& ace) {
  return (ace.inheritance & (inheritance::kFile | inheritance::kDirectory)) != 0;
}

std::string bitsCell(const std::optional<unsigned>& bits) {
  return bits ? kernelBitsText(*bits) : "-";
}

std::string firstLine(const std::string& path, const Projection& projection) {
  if (!projection.kernelError.empty()) {
    return "The kernel's ACL of " + path + " cannot be read: " + projection.kernelError + ".\n";
  }
  if (projection.kernelHasAcl) return {};
  return "The kernel keeps no ACL of its own for " + path + ": there the mode alone decides.\n";
}

std::string lastLine(const Projection& projection) {
  if (!projection.kernelHasAcl) return {};
  std::string missing;
  for (const auto& entry : projection.entries) {
    if (!entry.held) missing += (missing.empty() ? "" : ", ") + entry.who;
  }
  if (missing.empty()) return "The kernel's ACL has an entry for each of them.\n";
  return "The kernel's ACL has no entry for " + missing + ".\n";
}

}  // namespace

Projection makeProjection(const Array& acl, const Dictionary& privileges, const KernelAcls& kernel,
                          Principals& principals) {
  Projection projection;
  projection.kernelError = kernel.error;
  projection.kernelHasAcl = kernel.access || kernel.defaultAccess;
  const auto entries = identified(acl, principals);
  auto notes = beyondKernel(entries, isFolder(privileges), ownerOf(privileges));
  for (std::size_t at = 0; at < entries.size(); ++at) {
    const auto& [ace, who] = entries[at];
    Projection::Entry entry;
    entry.who = whoText(ace, principals);
    entry.access = appliesHere(ace) ? bitsIn(kernel.access, who) : std::nullopt;
    entry.defaultAccess = appliesInside(ace) ? bitsIn(kernel.defaultAccess, who) : std::nullopt;
    entry.held =
        (!appliesHere(ace) || entry.access) && (!appliesInside(ace) || entry.defaultAccess);
    entry.beyond = std::move(notes[at]);
    projection.entries.push_back(std::move(entry));
  }
  return projection;
}

std::string formatProjection(const std::string& path, const Projection& projection) {
  if (projection.entries.empty()) return printable(path) + " has no ACL entries.\n";
  std::vector<std::vector<std::string>> rows{
      {"NO", "WHO", "KERNEL", "INSIDE", "BEYOND THE KERNEL"}};
  std::size_t number = 0;
  for (const auto& entry : projection.entries) {
    const auto& beyond = entry.beyond;
    rows.push_back({std::to_string(++number), printable(entry.who), bitsCell(entry.access),
                    bitsCell(entry.defaultAccess), beyond.empty() ? "-" : beyond.front()});
    for (std::size_t at = 1; at < beyond.size(); ++at) rows.push_back({"", "", "", "", beyond[at]});
  }
  return printableLines(firstLine(path, projection)) + formatTable(rows) +
         printableLines(lastLine(projection));
}

Value projectionValue(const Projection& projection) {
  Array entries;
  for (const auto& entry : projection.entries) {
    Dictionary one{{"who", entry.who}, {"beyond", Array(entry.beyond.begin(), entry.beyond.end())}};
    if (entry.access) one.set("access", kernelBitsText(*entry.access));
    if (entry.defaultAccess) one.set("default", kernelBitsText(*entry.defaultAccess));
    entries.emplace_back(std::move(one));
  }
  return entries;
}

}  // namespace paddock::keelhouse
