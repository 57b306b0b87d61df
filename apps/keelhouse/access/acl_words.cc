#include "keelhouse/access/acl_words.h"

#include <algorithm>
#include <array>
#include <span>

#include "base/text.h"
#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

namespace {

struct Right {
  std::uint32_t bit;
  const char* onFile;
  const char* onFolder;
};

constexpr std::array kRights = {
    Right{acl::kReadData, "read-data", "list"},
    Right{acl::kWriteData, "write-data", "add-file"},
    Right{acl::kExecute, "execute", "search"},
    Right{acl::kDelete, "delete", "delete"},
    Right{acl::kAppendData, "append", "add-folder"},
    Right{acl::kDeleteChild, "delete-child", "delete-child"},
    Right{acl::kReadAttributes, "read-attributes", "read-attributes"},
    Right{acl::kWriteAttributes, "write-attributes", "write-attributes"},
    Right{acl::kReadExtendedAttributes, "read-extended", "read-extended"},
    Right{acl::kWriteExtendedAttributes, "write-extended", "write-extended"},
    Right{acl::kReadSecurity, "read-security", "read-security"},
    Right{acl::kWriteSecurity, "write-security", "write-security"},
    Right{acl::kChangeOwner, "change-owner", "change-owner"},
};

struct Word {
  const char* name;
  std::uint32_t bits;
};

// Larger sets first, as they are matched in this order.
constexpr std::array kSets = {
    Word{"full", acl::kAllPermissions},
    Word{"read", acl::kReadData | acl::kExecute | acl::kReadAttributes |
                     acl::kReadExtendedAttributes | acl::kReadSecurity},
    Word{"write", acl::kWriteData | acl::kDelete | acl::kAppendData | acl::kDeleteChild |
                      acl::kWriteAttributes | acl::kWriteExtendedAttributes},
};

constexpr std::array kInheritance = {
    Word{"inherit", acl::kFileInherit | acl::kDirectoryInherit},
    Word{"file-inherit", acl::kFileInherit},
    Word{"directory-inherit", acl::kDirectoryInherit},
    Word{"limit-inherit", acl::kLimitInherit},
    Word{"only-inherit", acl::kOnlyInherit},
    Word{"inherited", acl::kInherited},
};

std::string wordsWith(std::span<const Word> words) {
  std::string all;
  for (const Word& word : words) all += (all.empty() ? "" : ", ") + std::string(word.name);
  return all;
}

Failure unknownRight(std::string_view word) {
  std::string names;
  for (const Right& right : kRights) {
    names += std::string(", ") + right.onFolder;
    if (std::string_view(right.onFile) != right.onFolder) names += std::string("/") + right.onFile;
  }
  return usageFailure("\"" + std::string(word) + "\" is no right\nRights are read, write, full" +
                      names + ".");
}

std::uint32_t rightsOf(std::string_view word) {
  for (const Word& set : kSets) {
    if (word == set.name) return set.bits;
  }
  for (const Right& right : kRights) {
    if (word == right.onFile || word == right.onFolder) return right.bit;
  }
  throw unknownRight(word);
}

std::uint32_t inheritanceOf(std::string_view word) {
  for (const Word& known : kInheritance) {
    if (word == known.name) return known.bits;
  }
  throw usageFailure("\"" + std::string(word) + "\" is no inheritance\nInheritance is " +
                     wordsWith(kInheritance) + ".");
}

// The union of what `bitsOf` gives for each word between commas.
template <typename BitsOf>
std::uint32_t parseWords(std::string_view text, BitsOf bitsOf) {
  const std::string lower = asciiLower(text);
  std::uint32_t bits = 0;
  for (std::size_t start = 0; start <= lower.size();) {
    const std::size_t end = std::min(lower.find(',', start), lower.size());
    bits |= bitsOf(std::string_view(lower).substr(start, end - start));
    start = end + 1;
  }
  return bits;
}

void append(std::string& words, const char* word) {
  if (!words.empty()) words += ',';
  words += word;
}

// Appends the words whose bits are all in `bits`, and takes those away.
void appendWords(std::string& out, std::uint32_t& bits, std::span<const Word> words) {
  for (const Word& word : words) {
    if ((bits & word.bits) != word.bits) continue;
    append(out, word.name);
    bits &= ~word.bits;
  }
}

}  // namespace

std::uint32_t parseRights(std::string_view text) {
  return asciiLower(text) == "none" ? 0 : parseWords(text, rightsOf);
}

std::string formatRights(std::uint32_t bits, bool folder) {
  std::string words;
  bits &= acl::kAllPermissions;
  appendWords(words, bits, kSets);
  for (const Right& right : kRights) {
    if ((bits & right.bit) != 0) append(words, folder ? right.onFolder : right.onFile);
  }
  return words.empty() ? "none" : words;
}

std::uint32_t parseInheritance(std::string_view text) {
  constexpr std::uint32_t kLimits = acl::kLimitInherit | acl::kOnlyInherit;
  constexpr std::uint32_t kTo = acl::kFileInherit | acl::kDirectoryInherit;
  const std::uint32_t flags = parseWords(text, inheritanceOf);
  if ((flags & kLimits) != 0 && (flags & kTo) == 0) {
    throw usageFailure("\"" + std::string(text) +
                       "\" says how the entry is inherited, but not by what: add inherit, "
                       "file-inherit or directory-inherit");
  }
  return flags;
}

std::uint32_t inheritanceFlags(const std::vector<std::string>& words) {
  std::uint32_t flags = 0;
  for (const std::string& word : words) flags |= inheritanceOf(asciiLower(word));
  return flags;
}

std::string formatInheritance(std::uint32_t flags) {
  std::string words;
  appendWords(words, flags, kInheritance);
  return words;
}

}  // namespace paddock::keelhouse
