#include "keelhouse/access/projection_view.h"

#include <algorithm>

#include "keelhouse/access/ace.h"
#include "keelhouse/access/acl_words.h"
#include "keelhouse/access/folder_privileges.h"
#include "keelhouse/access/privileges_view.h"
#include "keelhouse/core/account_names.h"
#include "keelhouse/core/terminal_text.h"

namespace paddock::keelhouse {

namespace {

using Notes = std::vector<std::string>;

// The rights that the kernel's bit to write stands for. The first one decides about the bit.
constexpr std::uint32_t kWriteOnFile = acl::kWriteData | acl::kAppendData;
constexpr std::uint32_t kWriteOnFolder = kWriteOnFile | acl::kDeleteChild;

constexpr std::uint32_t kDecisive = acl::kReadData | acl::kWriteData | acl::kExecute;

// What the kernel keeps for the owner and root, or asks the folder above.
constexpr std::uint32_t kNotGiven =
    acl::kDelete | acl::kWriteAttributes | acl::kWriteSecurity | acl::kChangeOwner;
// And what everybody has who reaches the object.
constexpr std::uint32_t kNotDenied = kNotGiven | acl::kReadAttributes | acl::kReadSecurity;

std::string withBlanks(const std::string& words) {
  std::string text;
  for (const char character : words) {
    text += character;
    if (character == ',') text += ' ';
  }
  return text;
}

std::string namesOf(std::uint32_t bits, bool folder) {
  return withBlanks(formatRights(bits, folder));
}

void notePartOfWriting(Notes& notes, const Ace& ace, bool folder) {
  const std::uint32_t all = folder ? kWriteOnFolder : kWriteOnFile;
  const std::uint32_t has = ace.rights & all;
  if (has == 0 || has == all) return;
  const bool decided = (has & acl::kWriteData) != 0;
  const std::string what = std::string(decided ? "" : "not ") + (*ace.allow ? "given" : "denied");
  notes.push_back(namesOf(has, folder) + " without " + namesOf(all & ~has, folder) +
                  ": the kernel has one bit to write, which is " + what);
}

// Extended attributes go with the data in the kernel.
std::uint32_t withoutTheirBit(std::uint32_t bits) {
  std::uint32_t alone = 0;
  if ((bits & acl::kReadData) == 0) alone |= bits & acl::kReadExtendedAttributes;
  if ((bits & acl::kWriteData) == 0) alone |= bits & acl::kWriteExtendedAttributes;
  return alone;
}

void noteOtherRights(Notes& notes, const Ace& ace, bool folder) {
  const std::uint32_t beyond =
      (ace.rights & (*ace.allow ? kNotGiven : kNotDenied)) | withoutTheirBit(ace.rights);
  if (beyond == 0) return;
  notes.push_back(std::string("not the kernel's to ") + (*ace.allow ? "give: " : "deny: ") +
                  namesOf(beyond, folder));
}

void noteInheritance(Notes& notes, std::uint32_t flags) {
  const std::uint32_t to = flags & (acl::kFileInherit | acl::kDirectoryInherit);
  if (to == acl::kFileInherit) {
    notes.emplace_back(
        "files alone inherit it: the kernel's default ACL is for files and folders alike");
  }
  if (to == acl::kDirectoryInherit) {
    notes.emplace_back(
        "folders alone inherit it: the kernel's default ACL is for files and folders alike");
  }
  if (to != 0 && (flags & acl::kLimitInherit) != 0) {
    notes.emplace_back(
        "inheritance ends after one level: the kernel's default ACL goes on to every level");
  }
}

void notePrincipal(Notes& notes, const ProjectedEntry& entry,
                   const std::optional<std::uint32_t>& owner) {
  if (!entry.who) {
    notes.emplace_back("no uid or gid of this system: the kernel's ACL cannot name it");
    return;
  }
  const bool isUser = entry.who->type == PrincipalType::user;
  if (isUser && entry.who->id == owner) {
    notes.emplace_back("this user is the owner, for whom the kernel takes the mode");
  }
  if (!isUser && !*entry.ace.allow && (entry.ace.rights & kDecisive) != 0) {
    notes.emplace_back(
        "a group is denied: the kernel still lets in members who get in by another group");
  }
}

Notes notesOf(const ProjectedEntry& entry, bool folder, const std::optional<std::uint32_t>& owner) {
  if (!entry.ace.allow) return {"an entry of a kind that the kernel does not have"};
  Notes notes;
  notePrincipal(notes, entry, owner);
  notePartOfWriting(notes, entry.ace, folder);
  noteOtherRights(notes, entry.ace, folder);
  noteInheritance(notes, entry.ace.inheritance);
  return notes;
}

}  // namespace

std::vector<std::vector<std::string>> beyondKernel(const std::vector<ProjectedEntry>& entries,
                                                   bool folder,
                                                   const std::optional<std::uint32_t>& owner) {
  std::vector<Notes> all;
  all.reserve(entries.size());
  for (const ProjectedEntry& entry : entries) all.push_back(notesOf(entry, folder, owner));
  return all;
}

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

bool appliesHere(const Ace& ace) { return (ace.inheritance & acl::kOnlyInherit) == 0; }
bool appliesInside(const Ace& ace) {
  return (ace.inheritance & (acl::kFileInherit | acl::kDirectoryInherit)) != 0;
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
