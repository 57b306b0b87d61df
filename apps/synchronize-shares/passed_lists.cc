#include "synchronize-shares/passed_lists.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <utility>
#include <vector>

#include "base/file_access.h"
#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/files/file_object.h"
#include "platform/linux/files/folder_entries.h"
#include "platform/linux/privileges/mode_tail.h"

namespace paddock::synchronizer {

namespace {

constexpr std::size_t kMaximumFolders = 1000;
constexpr std::size_t kBufferBytes = 32768;

// What a folder passes on.
enum class Passed { nothing, list, unsortedList };

bool isInheritable(const nt_acl::Ace& ace) {
  return (ace.flags & (nt_acl::kObjectInherit | nt_acl::kContainerInherit)) != 0;
}

bool isDenied(const nt_acl::Ace& ace) { return ace.type == nt_acl::kDenied; }

// The tail has its part in the order, but makes no list of entries by itself.
Passed passedBy(std::vector<nt_acl::Ace> list) {
  std::vector<nt_acl::Ace> passed;
  std::copy_if(list.begin(), list.end(), std::back_inserter(passed), isInheritable);
  const auto entries = nt_acl::withoutTail(std::move(list), true).entries;
  if (std::none_of(entries.begin(), entries.end(), isInheritable)) return Passed::nothing;
  return std::is_partitioned(passed.begin(), passed.end(), isDenied) ? Passed::list
                                                                     : Passed::unsortedList;
}

Passed passedBy(int folder, const std::string& attribute) {
  std::string value;
  if (linuxExtendedAttributes().get(folder, attribute, value) != 0) return Passed::nothing;
  auto descriptor = nt_acl::decode(value);
  if (!descriptor || !descriptor->list) return Passed::nothing;
  return passedBy(std::move(*descriptor->list));
}

// Types other than DT_UNKNOWN are believed, so that a file is not opened.
bool mayBeFolder(const dirent64& entry) {
  return entry.d_type == DT_DIR || entry.d_type == DT_UNKNOWN;
}

// Of the folders directly in the folder, the most that one of them passes on.
Passed passedInside(int folder, const std::string& attribute) {
  std::array<char, kBufferBytes> buffer{};
  std::span<const char> bytes;
  std::int64_t position = 0;
  std::size_t seen = 0;
  Passed most = Passed::nothing;
  while (readEntries(folder, buffer, bytes, position) == 0 && !bytes.empty()) {
    FolderEntries entries(bytes);
    while (const dirent64* entry = entries.next()) {
      if (!mayBeFolder(*entry)) continue;
      if (++seen > kMaximumFolders || most == Passed::unsortedList) return most;
      const FileDescriptor inside(
          ::openat(folder, entry->d_name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
      if (inside) most = std::max(most, passedBy(inside.get(), attribute));
    }
  }
  return most;
}

}  // namespace

bool passesListsOn(const std::string& path, const std::string& attribute) {
  FileDescriptor folder;
  if (openObject(path, folder) != 0) return false;
  return std::max(passedBy(folder.get(), attribute), passedInside(folder.get(), attribute)) ==
         Passed::list;
}

}  // namespace paddock::synchronizer
