#include "keelhouse/access/acl_projection.h"

#include "keelhouse/access/acl_words.h"

namespace paddock::keelhouse {

namespace {

using Notes = std::vector<std::string>;

// The rights that the kernel's bit to write stands for. The first one decides about the bit.
constexpr std::uint32_t kWriteOnFile = rights::kWriteData | rights::kAppendData;
constexpr std::uint32_t kWriteOnFolder = kWriteOnFile | rights::kDeleteChild;

constexpr std::uint32_t kDecisive = rights::kReadData | rights::kWriteData | rights::kExecute;

// What the kernel keeps for the owner and root, or asks the folder above.
constexpr std::uint32_t kNotGiven =
    rights::kDelete | rights::kWriteAttributes | rights::kWriteSecurity | rights::kChangeOwner;
// And what everybody has who reaches the object.
constexpr std::uint32_t kNotDenied = kNotGiven | rights::kReadAttributes | rights::kReadSecurity;

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
  const bool decided = (has & rights::kWriteData) != 0;
  const std::string what = std::string(decided ? "" : "not ") + (*ace.allow ? "given" : "denied");
  notes.push_back(namesOf(has, folder) + " without " + namesOf(all & ~has, folder) +
                  ": the kernel has one bit to write, which is " + what);
}

// Extended attributes go with the data in the kernel.
std::uint32_t withoutTheirBit(std::uint32_t bits) {
  std::uint32_t alone = 0;
  if ((bits & rights::kReadData) == 0) alone |= bits & rights::kReadExtended;
  if ((bits & rights::kWriteData) == 0) alone |= bits & rights::kWriteExtended;
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
  const std::uint32_t to = flags & (inheritance::kFile | inheritance::kDirectory);
  if (to == inheritance::kFile) {
    notes.emplace_back(
        "files alone inherit it: the kernel's default ACL is for files and folders alike");
  }
  if (to == inheritance::kDirectory) {
    notes.emplace_back(
        "folders alone inherit it: the kernel's default ACL is for files and folders alike");
  }
  if (to != 0 && (flags & inheritance::kLimit) != 0) {
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

}  // namespace paddock::keelhouse
